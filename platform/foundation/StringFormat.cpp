#include "KXPublisher/platform/foundation/StringFormat.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace kx {

namespace {

constexpr const char *integerConversions = "diouxX";
constexpr const char *numberConversions = "aAeEfFgG";

bool isOneOf(const char *set, char character) {
  return character != '\0' && std::strchr(set, character) != nullptr;
}

/// The length of the placeholder at the start of `text`, which begins with '%'; 0 when it is cut short.
std::size_t placeholderLength(std::string_view text) {
  std::size_t end = 1;
  while (end < text.size() && isOneOf("-+ #0123456789.'hlqjzt", text[end])) ++end;
  return end < text.size() ? end + 1 : 0;
}

/// Prints one number with the flags, width and precision of `specification`, whatever length it names.
template <class Number>
void appendNumber(std::string_view specification, const char *length, Number number, std::string &to) {
  std::string format;
  for (const char character : specification.substr(0, specification.size() - 1)) {
    if (!isOneOf("hlqjzt", character)) format += character;
  }
  format += length;
  format += specification.back();
  char text[512];  // a double at full width has 309 digits before its point
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int written = std::snprintf(text, sizeof text, format.c_str(), number);
#pragma GCC diagnostic pop
  if (written > 0) to.append(text, std::min(static_cast<std::size_t>(written), sizeof text - 1));
}

}  // namespace

void FormatArgument::append(std::string_view specification, std::string &to) const {
  const char conversion = specification.back();
  switch (kind_) {
    case Kind::text:
      to += text_;
      break;
    case Kind::object:
      to += object_ == nullptr ? "(null)" : object_->description();
      break;
    case Kind::signedInteger:
    case Kind::unsignedInteger:
      if (isOneOf(integerConversions, conversion)) {
        appendNumber(specification, "ll", static_cast<unsigned long long>(integer_), to);
      } else {
        to += kind_ == Kind::signedInteger ? std::to_string(static_cast<std::int64_t>(integer_))
                                           : std::to_string(integer_);
      }
      break;
    case Kind::number:
      appendNumber(isOneOf(numberConversions, conversion) ? specification : "%g", "", number_, to);
      break;
  }
}

std::string stringWithFormat(std::string_view format, std::initializer_list<FormatArgument> arguments) {
  std::string text;
  const FormatArgument *next = arguments.begin();
  while (!format.empty()) {
    const std::size_t percent = format.find('%');
    text += format.substr(0, percent);
    if (percent == std::string_view::npos) break;
    format.remove_prefix(percent);
    const std::size_t length = placeholderLength(format);
    const std::string_view placeholder = format.substr(0, length == 0 ? format.size() : length);
    format.remove_prefix(placeholder.size());
    if (placeholder == "%%") {
      text += '%';
    } else if (length == 0 || next == arguments.end()) {
      text += placeholder;
    } else {
      (next++)->append(placeholder, text);
    }
  }
  return text;
}

}  // namespace kx
