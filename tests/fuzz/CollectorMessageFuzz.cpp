#include <sstream>

#include "tests/fuzz/Fuzzing.h"
#include "tests/tools/collector/Requests.h"
#include "tools/collector/DocumentRules.h"
#include "tools/collector/EventLog.h"

// Whatever body a client sends, it is accepted or refused, and printed so that a terminal stays as it is; and
// what is read quickly is what those who know why would have accepted.

namespace kx::collector {
namespace {

/// A service on which a client has logged in.
struct Session {
  CollectionService service{CollectionServiceSettings()};
  std::string token = service.receive(loginRequest(), std::chrono::steady_clock::now()).accessToken.value();
};

void checkPrinting(const Request &request, const Answer &answer) {
  std::ostringstream pretty;
  PrettyEventLog(pretty, /*colours=*/false).received("127.0.0.1:1", request, answer);
  for (const char each : pretty.str()) {
    require(each == '\n' || static_cast<unsigned char>(each) >= ' ',
            "no control character reaches a terminal");
  }
  std::ostringstream lines;
  JSONEventLog(lines).received("127.0.0.1:1", request, answer);
  std::istringstream read(lines.str());
  for (std::string line; std::getline(read, line);) {
    require(nlohmann::json::accept(line), "a line of the log is JSON");
  }
}

}  // namespace
}  // namespace kx::collector

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  using namespace kx::collector;
  using kx::require;
  static Session session;
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char *>(bytes) + 1, size - 1);
  const bool isLogin = bytes[0] % 2 != 0;
  const bool isPacked = bytes[0] % 8 >= 2;  // which nobody would find by changing bytes
  Request request = isLogin ? loginRequest() : messageRequest(session.token);
  request.body = isLogin || !isPacked ? text : gzip(text);
  setField(request, "Content-Length", std::to_string(request.body.size()));
  const Answer answer = session.service.receive(request, std::chrono::steady_clock::now());
  require(answer.status >= 200 && answer.status < 500, "a client's fault is a client's");
  require((answer.status < 300) == answer.reason.empty(), "a refusal has its reason");
  checkPrinting(request, answer);

  if (const auto values = MessageValues::read(text))
    require(isMessageDocument(text), "what is read quickly is a message");
  if (!isLogin && isPacked)
    require(answer.reason.empty() == isMessageDocument(text), "the rules are the service's");
  return 0;
}
