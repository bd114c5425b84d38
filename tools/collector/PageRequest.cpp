#include "tools/collector/PageRequest.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <charconv>

#include "tools/collector/Document.h"
#include "tools/collector/Refusal.h"

namespace kx::collector {

namespace {

constexpr std::uint64_t maximumId = INT64_MAX;

bool areEqual(std::string_view one, std::string_view other) {
  return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

int digitIn(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  const char lower = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string decoded(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '+') {
      result += ' ';
    } else if (text[at] == '%') {
      const int high = at + 2 < text.size() ? digitIn(text[at + 1]) : -1;
      const int low = at + 2 < text.size() ? digitIn(text[at + 2]) : -1;
      if (high < 0 || low < 0)
        throw Refusal(400, "a % in the query must stand before two hexadecimal digits");
      result += static_cast<char>(high * 16 + low);
      at += 2;
    } else {
      result += text[at];
    }
  }
  return result;
}

[[noreturn]] void refuse(std::string_view name, const std::string &rule, const std::string &value) {
  throw Refusal(400, "the parameter " + quote(name) + " must be " + rule + ", not " + quote(value));
}

/// Whether it is one of the names by which a browser calls the page.
bool isOwnName(std::string_view host, std::uint16_t port, const std::vector<std::string> &others) {
  const std::string end = ":" + std::to_string(port);
  const auto isHost = [&](const std::string &name) {
    return areEqual(host, name + end) || (port == 80 && areEqual(host, name));
  };
  return isHost("127.0.0.1") || isHost("localhost") || isHost("[::1]") ||
         std::any_of(others.begin(), others.end(), isHost);
}

}  // namespace

std::optional<std::string> PageRequest::value(std::string_view name) const {
  std::optional<std::string> found;
  for (const auto &[field, text] : fields) {
    if (!areEqual(field, name)) continue;
    if (found) return std::nullopt;
    found = text;
  }
  return found;
}

bool PageRequest::has(std::string_view name) const {
  return std::any_of(fields.begin(), fields.end(),
                     [name](const auto &field) { return areEqual(field.first, name); });
}

Query::Query(std::string_view target) {
  const auto mark = target.find('?');
  if (mark == std::string_view::npos) return;
  std::string_view rest = target.substr(mark + 1);
  while (!rest.empty()) {
    const auto end = std::min(rest.find('&'), rest.size());
    const std::string_view parameter = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (parameter.empty()) continue;
    const auto equals = std::min(parameter.find('='), parameter.size());
    parameters_.emplace_back(decoded(parameter.substr(0, equals)),
                             decoded(parameter.substr(std::min(equals + 1, parameter.size()))));
  }
}

std::optional<std::string> Query::text(std::string_view name) {
  const auto found = std::find_if(parameters_.begin(), parameters_.end(),
                                  [name](const auto &parameter) { return parameter.first == name; });
  if (found == parameters_.end()) return std::nullopt;
  std::string value = std::move(found->second);
  parameters_.erase(found);
  if (value.empty()) return std::nullopt;
  return value;
}

std::optional<std::uint64_t> Query::number(std::string_view name, std::uint64_t minimum,
                                           std::uint64_t maximum) {
  const auto value = text(name);
  if (!value) return std::nullopt;
  std::uint64_t number = 0;
  const char *end = value->data() + value->size();
  const auto result = std::from_chars(value->data(), end, number);
  if (result.ec != std::errc() || result.ptr != end || number < minimum || number > maximum) {
    refuse(name, "a number from " + std::to_string(minimum) + " to " + std::to_string(maximum), *value);
  }
  return number;
}

std::optional<bool> Query::boolean(std::string_view name) {
  const auto which = choice(name, {"false", "true"});
  if (!which) return std::nullopt;
  return *which == 1;
}

std::optional<std::size_t> Query::choice(std::string_view name,
                                         const std::vector<std::string_view> &choices) {
  const auto value = text(name);
  if (!value) return std::nullopt;
  const auto found = std::find(choices.begin(), choices.end(), *value);
  if (found != choices.end()) return static_cast<std::size_t>(found - choices.begin());
  std::string rule;
  for (const std::string_view allowed : choices) rule += (rule.empty() ? "" : " or ") + quote(allowed);
  refuse(name, rule, *value);
}

RecordFilter Query::filter() {
  RecordFilter filter;
  static const std::vector<std::string_view> kinds = {"login", "message", "other"};
  if (const auto kind = choice("kind", kinds)) filter.kind = std::string(kinds[*kind]);
  if (const auto outcome = choice("outcome", {"bad", "good"})) filter.accepted = *outcome == 1;
  filter.device = text("device");
  filter.bundle = text("bundle");
  filter.text = text("text");
  filter.warned = boolean("warned");
  filter.after = number("after", 0, maximumId);
  filter.before = number("before", 0, maximumId);
  return filter;
}

void Query::expectNoMore() const {
  if (parameters_.empty()) return;
  throw Refusal(
      400, "the parameter " + quote(parameters_.front().first) + " is unknown here, or there more than once");
}

std::string_view pathOf(std::string_view target) {
  return target.substr(0, target.find('?'));
}

void checkWhereFrom(const PageRequest &request, std::uint16_t port, const std::vector<std::string> &names) {
  const auto host = request.value("Host");
  if (!host || !isOwnName(*host, port, names)) {
    throw Refusal(
        403, "the header Host must be 127.0.0.1, localhost or [::1] with the port " + std::to_string(port));
  }
  if (request.has("Origin")) {
    constexpr std::string_view beginning = "http://";
    const std::string origin = request.value("Origin").value_or("");
    if (origin.compare(0, beginning.size(), beginning) != 0 ||
        !isOwnName(std::string_view(origin).substr(beginning.size()), port, names)) {
      throw Refusal(403, "requests from other web sites are not answered");
    }
  }
}

}  // namespace kx::collector
