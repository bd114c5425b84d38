#include "tools/collector/CollectionService.h"

#include <strings.h>

#include "tools/collector/DocumentRules.h"
#include "tools/collector/GzipMember.h"
#include "tools/collector/Refusal.h"

namespace kx::collector {

namespace {

constexpr std::string_view bearer = "Bearer ";

Endpoint endpointFor(const std::string &target) {
  if (target == CollectionService::loginPath) return Endpoint::login;
  if (target == CollectionService::messagePath) return Endpoint::message;
  return Endpoint::unknown;
}

void checkField(const Request &request, const std::string &name, const std::string &expected) {
  const auto values = request.values(name);
  if (values.empty()) throw Refusal(415, "the header " + name + " is missing, it must be " + expected);
  if (values.size() > 1) throw Refusal(415, "the header " + name + " is there more than once");
  if (values.front() != expected) {
    throw Refusal(415, "the header " + name + " must be " + expected + " and is " + quote(values.front()));
  }
}

}  // namespace

std::vector<std::string> Request::values(std::string_view name) const {
  std::vector<std::string> found;
  for (const auto &[field, value] : fields) {
    if (field.size() == name.size() && strncasecmp(field.data(), name.data(), name.size()) == 0) {
      found.push_back(value);
    }
  }
  return found;
}

CollectionService::CollectionService(CollectionServiceSettings settings)
    : settings_(settings), tokens_(settings.maximumTokens, settings.tokenLifetime) {}

Answer CollectionService::receive(const Request &request, std::chrono::steady_clock::time_point now) {
  Answer answer;
  answer.endpoint = endpointFor(request.target);
  try {
    accept(request, now, answer);
  } catch (const Refusal &refusal) {
    answer.status = refusal.status();
    answer.reason = refusal.what();
  }
  if (const EndpointFaults *faults = faultsOf(answer.endpoint)) {
    answer.delay = faults->delay;
    answer.drop = faults->drop;
  }
  return answer;
}

void CollectionService::accept(const Request &request, std::chrono::steady_clock::time_point now,
                               Answer &answer) {
  if (answer.endpoint == Endpoint::unknown) {
    throw Refusal(404, "there is no endpoint " + quote(request.target) + ", only \"" + loginPath +
                           "\" and \"" + messagePath + "\"");
  }
  if (request.method != "POST") {
    throw Refusal(405, "the method must be POST and is " + quote(request.method));
  }
  checkField(request, "Content-Type", "application/json");
  checkField(request, "Content-Encoding", "gzip");
  checkAuthorization(request, answer.endpoint, now);
  if (request.body.size() > settings_.maximumBodySize) {
    throw Refusal(413, "the body has more than " + std::to_string(settings_.maximumBodySize) + " bytes");
  }
  answer.document = parseDocument(unpackGzipMember(request.body, settings_.maximumBodySize));
  if (answer.endpoint == Endpoint::login) {
    checkLoginDocument(*answer.document);
  } else {
    checkMessageDocument(*answer.document);
  }

  EndpointFaults &faults = *faultsOf(answer.endpoint);
  if (faults.status && faults.statusCount != 0u) {
    if (faults.statusCount) --*faults.statusCount;
    answer.status = *faults.status;
    answer.reason = "told to answer so";
  } else if (answer.endpoint == Endpoint::login && !faults.drop) {
    answer.accessToken = tokens_.issue(now);
  }
}

void CollectionService::checkAuthorization(const Request &request, Endpoint endpoint,
                                           std::chrono::steady_clock::time_point now) const {
  const auto values = request.values("Authorization");
  if (endpoint == Endpoint::login) {
    if (!values.empty()) throw Refusal(400, "a login must not carry the header Authorization");
    return;
  }
  if (values.empty()) throw Refusal(403, "the header Authorization is missing");
  if (values.size() > 1) throw Refusal(403, "the header Authorization is there more than once");
  const std::string &value = values.front();
  if (value.compare(0, bearer.size(), bearer) != 0) {
    throw Refusal(403, "the header Authorization must be \"Bearer\", one blank and the access token");
  }
  if (!tokens_.accept(std::string_view(value).substr(bearer.size()), now)) {
    throw Refusal(403, "the access token is unknown or has expired");
  }
}

EndpointFaults *CollectionService::faultsOf(Endpoint endpoint) {
  switch (endpoint) {
    case Endpoint::login:
      return &settings_.login;
    case Endpoint::message:
      return &settings_.message;
    case Endpoint::unknown:
      break;
  }
  return nullptr;
}

}  // namespace kx::collector
