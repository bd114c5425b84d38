#include "tools/collector/OperationsService.h"

#include <string_view>

namespace kx::collector {

namespace {

PageAnswer textAnswer(unsigned status, const std::string &text) {
  PageAnswer answer;
  answer.status = status;
  answer.mediaType = "text/plain; charset=utf-8";
  answer.body = text + "\n";
  return answer;
}

}  // namespace

PageAnswer OperationsService::answer(const PageRequest &request, Feed::Time /*now*/) {
  const std::string_view path = pathOf(request.target);
  if (path != "/metrics" && path != "/healthz" && path != "/readyz") {
    return textAnswer(404, "there are /metrics, /healthz and /readyz");
  }
  if (request.method != "GET" && request.method != "HEAD") {
    PageAnswer answer = textAnswer(405, "the method must be GET");
    answer.fields.emplace_back("Allow", "GET");
    return answer;
  }
  if (path == "/healthz") return textAnswer(200, "it runs");
  if (path == "/readyz") {
    const std::string problem = sources_.whyNotReady();
    return problem.empty() ? textAnswer(200, "it is ready") : textAnswer(503, problem);
  }
  PageAnswer answer;
  answer.mediaType = "text/plain; version=0.0.4; charset=utf-8";
  answer.body = sources_.metrics();
  return answer;
}

}  // namespace kx::collector
