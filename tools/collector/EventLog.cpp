#include "tools/collector/EventLog.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <vector>

#include "tools/collector/RecordDocument.h"

namespace kx::collector {

namespace {

constexpr const char *green = "\x1B[32m";
constexpr const char *red = "\x1B[31m";
constexpr const char *bold = "\x1B[1m";
constexpr const char *plain = "\x1B[0m";

using Row = std::pair<std::string, std::string>;

std::string timeText(const char *format, const std::tm &time) {
  char text[32];
  return std::string(text, std::strftime(text, sizeof text, format, &time));
}

std::string localTimeOfDay() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return timeText("%H:%M:%S", local);
}

}  // namespace

std::string utcNow() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();
  const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char fraction[8];
  std::snprintf(fraction, sizeof fraction, ".%03dZ", static_cast<int>(milliseconds % 1000));
  return timeText("%Y-%m-%dT%H:%M:%S", utc) + fraction;
}

namespace {

std::string outcomeText(const Answer &answer) {
  if (answer.download != nullptr) return "the certificate was fetched (" + answer.download->contentType + ")";
  const bool refused = !answer.reason.empty();
  std::string text = refused ? "answered " : "accepted, ";
  text += std::to_string(answer.status) + (refused ? ": " + answer.reason : "");
  if (answer.drop) text += " (not sent: told to drop the connection)";
  return text;
}

/// One row a value; those of nested objects under "outer.inner".
void addRows(const Document &object, const std::string &path, std::vector<Row> &rows) {
  for (const auto &[key, value] : object.items()) {
    const std::string keyText = quote(key);
    const std::string name = path + keyText.substr(1, keyText.size() - 2);
    if (value.is_object()) {
      addRows(value, name + ".", rows);
    } else {
      rows.emplace_back(name, printable(value));
    }
  }
}

std::vector<Row> rowsOf(const Document &document) {
  std::vector<Row> rows;
  const Document &shown = document.is_array() && document.size() == 1 ? document[0] : document;
  if (shown.is_object()) {
    addRows(shown, "", rows);
  } else {
    rows.emplace_back("body", printable(shown));
  }
  return rows;
}

}  // namespace

std::string ListeningAddress::hostAndPort(const std::string &host, std::uint16_t number) {
  const bool isIPv6 = host.find(':') != std::string::npos;
  return (isIPv6 ? "[" + host + "]" : host) + ":" + std::to_string(number);
}

std::string ListeningAddress::hostAndPort() const {
  return hostAndPort(address, port);
}

std::string ListeningAddress::url() const {
  return "https://" + hostAndPort();
}

std::string PrettyEventLog::leftOut(std::size_t count) {
  return "(left out, since the reader of this paused: " + std::to_string(count) +
         (count == 1 ? " event)\n\n" : " events)\n\n");
}

void PrettyEventLog::listening(const ListeningAddress &where) {
  output_ << "listening on " << where.url() << (where.isAuthority ? ", CA file " : ", certificate ")
          << where.trustedFile << std::endl;
  if (!where.page.empty()) output_ << "see them arrive at " << where.page << "/" << std::endl;
  if (!where.operations.empty()) output_ << "metrics at " << where.operations << "/metrics" << std::endl;
  if (!where.pagePassword.empty()) {
    output_ << "the page's password, for any user name, is " << where.pagePassword << std::endl;
  }
}

void PrettyEventLog::received(const std::string &client, const Request & /*request*/, const Answer &answer) {
  const bool fine = answer.reason.empty() && !answer.drop;
  const char *name = answer.endpoint == Endpoint::unknown ? "request" : nameOf(answer.endpoint);
  output_ << localTimeOfDay() << "  " << coloured(bold, name) << " from " << client << ": "
          << coloured(fine ? green : red, outcomeText(answer)) << "\n";
  std::vector<Row> rows;
  if (const auto document = answer.wholeDocument()) rows = rowsOf(*document);
  if (answer.accessToken) rows.emplace_back("(access token)", *answer.accessToken);
  std::size_t width = 0;
  for (const auto &[key, value] : rows) width = std::max(width, key.size());
  for (const auto &[key, value] : rows) printRow(key, value, width);
  output_ << std::endl;
}

void PrettyEventLog::failed(const std::string &client, const std::string &reason) {
  output_ << localTimeOfDay() << "  connection from " << client << ": " << coloured(red, reason) << "\n"
          << std::endl;
}

std::string PrettyEventLog::coloured(const char *colour, const std::string &text) const {
  return colours_ ? colour + text + plain : text;
}

void PrettyEventLog::printRow(const std::string &key, const std::string &value, std::size_t width) {
  output_ << "          " << key << std::string(width - key.size() + 2, ' ') << value << "\n";
}

std::string JSONEventLog::leftOut(std::size_t count) {
  return Document{{"event", "leftOut"}, {"count", count}}.dump() + "\n";
}

void JSONEventLog::listening(const ListeningAddress &where) {
  Document event = {{"event", "listening"},
                    {"url", where.url()},
                    {"address", where.address},
                    {"port", where.port},
                    {where.isAuthority ? "caFile" : "certificate", where.trustedFile}};
  if (!where.operations.empty()) event["operations"] = where.operations;
  if (!where.page.empty()) {
    event["page"] = where.page;
    event["pageToken"] = where.pageToken;
    if (!where.pagePassword.empty()) event["pagePassword"] = where.pagePassword;
  }
  print(event);
}

void JSONEventLog::received(const std::string &client, const Request &request, const Answer &answer) {
  Document event = {{"event", "request"}, {"time", utcNow()}, {"client", client}};
  if (answer.endpoint != Endpoint::unknown) event["endpoint"] = nameOf(answer.endpoint);
  event["method"] = request.method;
  event["target"] = request.target;
  event["headerFields"] = documentOf(request.fields);
  event["packedSize"] = request.body.size();
  if (answer.text) event["unpackedSize"] = answer.text->size();
  event["accepted"] = answer.reason.empty();
  event["status"] = answer.status;
  if (!answer.reason.empty()) event["reason"] = answer.reason;
  if (!answer.warnings.empty()) event["warnings"] = answer.warnings;
  if (!answer.fault.empty()) event["fault"] = answer.fault;
  if (answer.drop) event["dropped"] = true;
  event["microseconds"] = {{"receive", request.receiveTime.count()}, {"work", answer.workTime.count()}};
  if (answer.accessToken) event["accessToken"] = *answer.accessToken;
  if (const auto document = answer.wholeDocument()) event["document"] = *document;
  print(event);
}

void JSONEventLog::failed(const std::string &client, const std::string &reason) {
  print({{"event", "connection"}, {"time", utcNow()}, {"client", client}, {"reason", reason}});
}

void JSONEventLog::print(const Document &event) {
  output_ << event.dump(-1, ' ', true, Document::error_handler_t::replace) << std::endl;
}

}  // namespace kx::collector
