#include "tools/collector/CollectionService.h"

#include <strings.h>

#include <algorithm>
#include <utility>

#include "tools/collector/DocumentRules.h"
#include "tools/collector/GzipMember.h"
#include "tools/collector/Refusal.h"
#include "tools/collector/RememberedTokens.h"

namespace kx::collector {

namespace {

constexpr std::string_view bearer = "Bearer ";
constexpr const char *unknownTokenReason = "the access token is unknown or has expired";
constexpr std::size_t maximumOffendingBytes = 1000;
constexpr std::chrono::hours usualLifeOfSignedToken{24};
constexpr const char *toldTo = "told to answer so";

Endpoint endpointFor(const std::string &target) {
  if (target == CollectionService::loginPath) return Endpoint::login;
  if (target == CollectionService::messagePath) return Endpoint::message;
  return Endpoint::unknown;
}

void checkField(const Request &request, std::string_view field, std::string_view expected) {
  const auto values = request.values(field);
  if (values.size() == 1 && values.front() == expected) return;
  const std::string name(field);
  const std::string wanted(expected);
  if (values.empty()) throw Refusal(415, "the header " + name + " is missing, it must be " + wanted);
  if (values.size() > 1) throw Refusal(415, "the header " + name + " is there more than once");
  throw Refusal(415, "the header " + name + " must be " + wanted + " and is " + quote(values.front()));
}

/// In the text that the refusal is about.
std::optional<OffendingBytes> offendingBytes(const Subject &subject, const std::string &text) {
  Span span = subject.bytes;
  if (subject.part == Subject::Part::none) return std::nullopt;
  if (subject.part != Subject::Part::bytes) {
    const auto place = placeOf(text, subject.outer, subject.key);
    if (!place) return std::nullopt;
    span = subject.part == Subject::Part::key ? place->key : place->value;
  }
  return OffendingBytes{span.offset, text.substr(span.offset, std::min(span.length, maximumOffendingBytes))};
}

/// Of a request that has passed the checks.
std::string tokenIn(const Request &request) {
  const auto values = request.values("Authorization");
  return values.empty() ? ""
                        : std::string(values.front().substr(std::min(bearer.size(), values.front().size())));
}

/// The "ifa" of a message, as far as it could be read.
std::optional<std::string> deviceIn(const Answer &answer) {
  if (answer.message != nullptr) return std::string((*answer.message)["ifa"].text);
  const Document *const message = answer.messageObject();
  if (message == nullptr) return std::nullopt;
  const auto found = message->find("ifa");
  if (found == message->end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

/// A refusal stays what it is; when and whether its answer goes out is another matter.
bool actsOn(Fault::Action action, const Answer &answer) {
  const bool changesAnswer =
      action == Fault::Action::status || action == Fault::Action::expire || action == Fault::Action::refuse;
  return answer.reason.empty() || !changesAnswer;
}

std::string secondsText(std::chrono::milliseconds time) {
  return printable(static_cast<double>(time.count()) / 1000) + " s";
}

void addFaults(Fault::Endpoint endpoint, const EndpointFaults &settings, Faults &faults) {
  Fault fault;
  fault.endpoint = endpoint;
  if (settings.status) {
    fault.status = *settings.status;
    fault.count = settings.statusCount;
    faults.add(fault);
  }
  fault.status = 0;
  fault.count.reset();
  if (settings.delay.count() > 0) {
    fault.action = Fault::Action::delay;
    fault.time = settings.delay;
    faults.add(fault);
  }
  fault.time = {};
  if (settings.drop) {
    fault.action = Fault::Action::drop;
    faults.add(fault);
  }
}

}  // namespace

const char *nameOf(Endpoint endpoint) {
  switch (endpoint) {
    case Endpoint::login:
      return "login";
    case Endpoint::message:
      return "message";
    case Endpoint::unknown:
      break;
  }
  return "other";
}

std::vector<std::string_view> Request::values(std::string_view name) const {
  std::vector<std::string_view> found;
  for (const auto &[field, value] : fields) {
    if (field.size() == name.size() && strncasecmp(field.data(), name.data(), name.size()) == 0) {
      found.push_back(value);
    }
  }
  return found;
}

HeaderFields Answer::fields() const {
  HeaderFields fields;
  if (status == 405) fields.emplace_back("Allow", "POST");
  if (accessToken) fields.emplace_back("set-authorization", *accessToken);
  if (!location.empty()) fields.emplace_back("Location", location);
  if (!reason.empty()) fields.emplace_back("Content-Type", "text/plain; charset=utf-8");
  if (download != nullptr) {
    fields.emplace_back("Content-Type", download->contentType);
    fields.emplace_back("Content-Security-Policy",
                        "default-src 'none'; base-uri 'none'; frame-ancestors 'none'");
    fields.emplace_back("X-Content-Type-Options", "nosniff");
    fields.emplace_back("Cache-Control", "no-store");
  }
  return fields;
}

std::optional<Document> Answer::wholeDocument() const {
  if (message != nullptr && text) return parseDocument(*text);
  return document;
}

const Document *Answer::messageObject() const {
  const bool isArray =
      endpoint == Endpoint::message && document && document->is_array() && !document->empty();
  return isArray && document->front().is_object() ? &document->front() : nullptr;
}

CollectionService::CollectionService(CollectionServiceSettings settings)
    : settings_(std::move(settings)), tokens_(newTokens()) {
  addFaults(Fault::Endpoint::login, settings_.login, faults_);
  addFaults(Fault::Endpoint::message, settings_.message, faults_);
}

std::unique_ptr<AccessTokens> CollectionService::newTokens() {
  if (!settings_.tokenKeys) {
    return std::make_unique<RememberedTokens>(settings_.maximumTokens, settings_.tokenLifetime);
  }
  auto tokens = std::make_unique<SignedTokens>(*settings_.tokenKeys,
                                               settings_.tokenLifetime.value_or(usualLifeOfSignedToken));
  signed_ = tokens.get();
  return tokens;
}

Answer CollectionService::receive(const Request &request, std::chrono::steady_clock::time_point now) {
  const auto begin = std::chrono::steady_clock::now();
  Answer answer;
  answer.endpoint = endpointFor(request.target);
  try {
    accept(request, now, answer);
  } catch (const Refusal &refusal) {
    answer.status = refusal.status();
    answer.reason = refusal.what();
    answer.offending = offendingBytes(refusal.subject(), answer.text ? *answer.text : request.body);
  }
  applyFaults(request, answer);
  const bool isAccepted = answer.reason.empty();
  if (isAccepted && answer.endpoint == Endpoint::login && !answer.drop && !answer.accessToken) {
    answer.accessToken = tokens_->issue(now);
  }
  if (isAccepted) lookAt(answer);
  answer.workTime =
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin);
  return answer;
}

void CollectionService::lookAt(Answer &answer) {
  const auto time = std::chrono::system_clock::now();
  if (answer.message != nullptr) {
    answer.warnings = warnings_.about(*answer.message, time);
    warnings_.remember(std::string((*answer.message)["id"].text));
  } else if (const Document *const message = answer.messageObject()) {
    answer.warnings = warnings_.about(*message, time);
    warnings_.remember((*message)["id"].get_ref<const std::string &>());
  }
}

void CollectionService::accept(const Request &request, std::chrono::steady_clock::time_point now,
                               Answer &answer) {
  if (answer.endpoint == Endpoint::unknown) {
    if (request.method == "GET" && settings_.download)
      answer.download = settings_.download->find(request.target);
    if (answer.download != nullptr) return;
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
  answer.text = unpackGzipMember(request.body, settings_.maximumBodySize);
  if (answer.endpoint == Endpoint::message) {
    if (auto values = MessageValues::read(*answer.text)) {
      answer.message = std::make_shared<const MessageValues>(std::move(*values));
      return;
    }
  }
  answer.document = parseDocument(*answer.text);
  if (answer.endpoint == Endpoint::login) {
    checkLoginDocument(*answer.document);
  } else {
    checkMessageDocument(*answer.document);
  }
}

void CollectionService::applyFaults(const Request &request, Answer &answer) {
  if (answer.endpoint == Endpoint::unknown) return;
  const auto endpoint =
      answer.endpoint == Endpoint::login ? Fault::Endpoint::login : Fault::Endpoint::message;
  for (const Fault &fault : faults_.matching(endpoint, deviceIn(answer))) {
    if (actsOn(fault.action, answer) && faults_.use(fault.id)) applyFault(fault, request, answer);
  }
}

void CollectionService::applyFault(const Fault &fault, const Request &request, Answer &answer) {
  const bool isLogin = answer.endpoint == Endpoint::login;
  std::string done;
  switch (fault.action) {
    case Fault::Action::status:
      answer.status = fault.status;
      answer.reason = toldTo;
      answer.location = fault.location.value_or("");
      done = "answered " + std::to_string(fault.status);
      break;
    case Fault::Action::delay:
      answer.delay += fault.time;
      done = "held the answer back for " + secondsText(fault.time);
      break;
    case Fault::Action::drop:
      answer.drop = true;
      done = "dropped the connection";
      break;
    case Fault::Action::stall:
      answer.stall = fault.time;
      done = "stalled half-way for " + secondsText(fault.time);
      break;
    case Fault::Action::expire:
      if (isLogin) {
        answer.accessToken = AccessTokens::unknownToken();
        done = "gave out a token that is not good";
        break;
      }
      tokens_->forget(tokenIn(request));
      answer.status = 403;
      answer.reason = unknownTokenReason;
      done = "let the token expire";
      break;
    case Fault::Action::refuse:
      answer.status = 403;
      answer.reason = isLogin ? toldTo : unknownTokenReason;
      done = isLogin ? "refused the login" : "refused the token";
      break;
  }
  answer.fault += (answer.fault.empty() ? "" : ", ") + done;
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
  const std::string_view value = values.front();
  if (value.compare(0, bearer.size(), bearer) != 0) {
    throw Refusal(403, "the header Authorization must be \"Bearer\", one blank and the access token");
  }
  if (!tokens_->accept(value.substr(bearer.size()), now)) {
    throw Refusal(403, unknownTokenReason);
  }
}

}  // namespace kx::collector
