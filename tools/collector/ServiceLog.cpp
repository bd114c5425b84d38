#include "tools/collector/ServiceLog.h"

#include "tools/collector/Encoding.h"

namespace kx::collector {

namespace {

constexpr std::size_t maximumSizeOfText = 300;  // of what others have written

std::string shortened(const std::string &text) {
  return std::string(beginningOf(text, maximumSizeOfText));
}

const char *endpointName(Endpoint endpoint) {
  if (endpoint == Endpoint::login) return "login";
  return endpoint == Endpoint::message ? "message" : "other";
}

}  // namespace

std::string ServiceLog::leftOut(std::size_t count) {
  return JSONEventLog::leftOut(count);
}

void ServiceLog::listening(const ListeningAddress &where) {
  Document members = {{"url", where.url()},
                      {"address", where.address},
                      {"port", where.port},
                      {where.isAuthority ? "caFile" : "certificate", where.trustedFile}};
  if (!where.operations.empty()) members["operations"] = where.operations;
  print("listening", false, std::move(members));
}

void ServiceLog::received(const std::string &client, const Request &request, const Answer &answer) {
  if (answer.reason.empty()) return;
  print("refused", true,
        {{"client", client},
         {"endpoint", endpointName(answer.endpoint)},
         {"method", shortened(request.method)},
         {"status", answer.status},
         {"reason", shortened(answer.reason)}});
}

void ServiceLog::failed(const std::string &client, const std::string &reason) {
  print("connection", true, {{"client", client}, {"reason", shortened(reason)}});
}

void ServiceLog::streamChanged(bool isReady, const std::string &problem) {
  Document members = {{"ready", isReady}};
  if (!problem.empty()) members["reason"] = problem;
  print("stream", !isReady, std::move(members));
}

void ServiceLog::happened(const std::string &event, const std::string &problem) {
  print(event, !problem.empty(), problem.empty() ? Document::object() : Document{{"reason", problem}});
}

void ServiceLog::print(const std::string &event, bool isWarning, Document members) {
  members["event"] = event;
  members["level"] = isWarning ? "warning" : "info";
  members["time"] = utcNow();
  output_ << members.dump(-1, ' ', true, Document::error_handler_t::replace) << std::endl;
}

}  // namespace kx::collector
