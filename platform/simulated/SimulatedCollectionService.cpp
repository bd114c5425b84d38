#include "KXPublisher/platform/simulated/SimulatedCollectionService.h"

#include <zlib.h>

#include <algorithm>
#include <utility>

#include "KXPublisher/platform/DispatchQueue.h"

namespace kx {

namespace {

constexpr double timeoutWithoutProgress = 60.0;  // seconds

// Codes of the URL loading system.
constexpr const char *urlErrors = "NSURLErrorDomain";
constexpr int timedOut = -1001;
constexpr int connectionLost = -1005;
constexpr int notConnected = -1009;

}  // namespace

std::string SimulatedRequest::path() const {
  const std::size_t host = url.find("://");
  const std::size_t slash = host == std::string::npos ? host : url.find('/', host + 3);
  return slash == std::string::npos ? "" : url.substr(slash);
}

std::optional<std::string> SimulatedRequest::header(const std::string &name) const {
  const HTTPHeaderNameLess less;
  for (const auto &[candidate, value] : headerFields) {
    if (!less(candidate, name) && !less(name, candidate)) return value;
  }
  return std::nullopt;
}

std::optional<std::string> SimulatedRequest::text() const {
  if (!body) return std::nullopt;
  z_stream stream{};
  stream.next_in = const_cast<Bytef *>(body->data());
  stream.avail_in = static_cast<uInt>(body->size());
  if (inflateInit2(&stream, 15 + 16) != Z_OK) return std::nullopt;
  std::string text;
  int result = Z_OK;
  while (result == Z_OK) {
    char chunk[4096];
    stream.next_out = reinterpret_cast<Bytef *>(chunk);
    stream.avail_out = sizeof chunk;
    result = inflate(&stream, Z_NO_FLUSH);
    text.append(chunk, sizeof chunk - stream.avail_out);
  }
  const bool whole = result == Z_STREAM_END && stream.avail_in == 0;
  inflateEnd(&stream);
  return whole ? std::optional<std::string>(std::move(text)) : std::nullopt;
}

SimulatedReply SimulatedReply::status(long statusCode) {
  SimulatedReply reply;
  reply.statusCode = statusCode;
  return reply;
}

SimulatedReply SimulatedReply::token(const std::string &accessToken) {
  SimulatedReply reply;
  reply.headerFields["Set-Authorization"] = accessToken;
  return reply;
}

SimulatedReply SimulatedReply::failure(const std::string &reason) {
  SimulatedReply reply;
  reply.error = Error{"simulated", -1, reason};
  return reply;
}

SimulatedReply SimulatedReply::silence() {
  SimulatedReply reply;
  reply.never = true;
  return reply;
}

SimulatedCollectionService::SimulatedCollectionService()
    : respond([this](const SimulatedRequest &request) { return defaultReply(request); }) {}

void SimulatedCollectionService::script(const std::string &path, std::vector<SimulatedReply> replies) {
  auto &queue = scripted_[path];
  queue.insert(queue.end(), replies.begin(), replies.end());
}

SimulatedReply SimulatedCollectionService::receive(const SimulatedRequest &request) {
  requests.push_back(request);
  if (mostRequests && requests.size() > *mostRequests) {
    requests.erase(requests.begin(), requests.end() - static_cast<std::ptrdiff_t>(*mostRequests));
  }
  auto &replies = scripted_[request.path()];
  if (replies.empty()) return respond(request);
  SimulatedReply reply = std::move(replies.front());
  replies.erase(replies.begin());
  if (const auto token = reply.headerFields.find("Set-Authorization"); token != reply.headerFields.end()) {
    accepted_.push_back(token->second);
  }
  return reply;
}

SimulatedReply SimulatedCollectionService::defaultReply(const SimulatedRequest &request) {
  if (request.path() == loginPath) {
    accepted_.push_back("token-" + std::to_string(++tokens_));
    return SimulatedReply::token(accepted_.back());
  }
  if (request.path() != messagePath) return SimulatedReply::status(404);
  const auto authorization = request.header("Authorization");
  const bool known =
      std::any_of(accepted_.begin(), accepted_.end(),
                  [&authorization](const std::string &token) { return authorization == "Bearer " + token; });
  return SimulatedReply::status(known ? 200 : 403);
}

std::vector<SimulatedRequest> SimulatedCollectionService::requestsFor(const std::string &path) const {
  std::vector<SimulatedRequest> found;
  std::copy_if(requests.begin(), requests.end(), std::back_inserter(found),
               [&path](const SimulatedRequest &request) { return request.path() == path; });
  return found;
}

class SimulatedURLSessionService::Task : public URLSessionUploadTask {
 public:
  explicit Task(WorkItem start) : start_(std::move(start)) {}

  void resume() override {
    if (const WorkItem start = std::exchange(start_, nullptr)) start();
  }

 private:
  WorkItem start_;
};

class SimulatedURLSessionService::Session : public URLSession {
 public:
  explicit Session(SimulatedURLSessionService &service) : service_(service) { ++service_.sessionsAlive; }
  ~Session() override { --service_.sessionsAlive; }

  std::shared_ptr<URLSessionUploadTask> uploadTaskWithRequest(const URLRequest &request,
                                                              std::optional<Data> fromData,
                                                              CompletionHandler completionHandler) override {
    service_.scheduler_.yield();
    if (invalidated_) return nullptr;
    return std::make_shared<Task>([this, self = shared_from_this(), request, body = std::move(fromData),
                                   completionHandler = std::move(completionHandler)] {
      service_.send(request, body, completionHandler);
    });
  }

  void finishTasksAndInvalidate() override {
    service_.scheduler_.yield();
    if (!std::exchange(invalidated_, true)) ++service_.invalidatedSessions;
  }

 private:
  SimulatedURLSessionService &service_;
  bool invalidated_ = false;
};

std::optional<URL> SimulatedURLSessionService::URLWithString(const std::string &text) {
  const std::size_t scheme = text.find("://");
  if (scheme == 0 || scheme == std::string::npos) return std::nullopt;
  const std::size_t slash = text.find('/', scheme + 3);
  if (slash == scheme + 3) return std::nullopt;
  const bool visible = std::all_of(text.begin(), text.end(), [](char character) { return character > ' '; });
  return visible ? std::optional<URL>(URL{text}) : std::nullopt;
}

std::shared_ptr<URLSession> SimulatedURLSessionService::sessionWithDefaultConfiguration() {
  ++sessions;
  if (const auto happens = std::exchange(whileNextSessionIsMade, nullptr)) happens();
  return std::make_shared<Session>(*this);
}

void SimulatedURLSessionService::send(const URLRequest &request, const std::optional<Data> &body,
                                      URLSession::CompletionHandler completionHandler) {
  scheduler_.yield();
  if (off_) return;
  sendThroughNetwork(request, body, std::move(completionHandler));
  scheduler_.yield();
}

void SimulatedURLSessionService::sendThroughNetwork(const URLRequest &request,
                                                    const std::optional<Data> &body,
                                                    URLSession::CompletionHandler completionHandler) {
  const SimulatedScheduler::OwnWork own(scheduler_);
  if (networkIsReached != nullptr && !networkIsReached()) {
    scheduler_.say("request without a network", request.url.absoluteString);
    complete(std::move(completionHandler), nullptr,
             Error{urlErrors, notConnected, "The Internet connection appears to be offline."}, 0);
    return;
  }
  scheduler_.say("request", request.url.absoluteString);
  const SimulatedReply reply = service_.receive({scheduler_.uptime(), request.url.absoluteString,
                                                 request.HTTPMethod, request.allHTTPHeaderFields, body});
  std::shared_ptr<URLResponse> response;
  if (reply.isHTTP) {
    response = std::make_shared<HTTPURLResponse>(reply.statusCode, reply.headerFields);
  } else {
    response = std::make_shared<URLResponse>();
  }
  if (reply.never) {
    complete(std::move(completionHandler), nullptr, Error{"simulated", timedOut, "The request timed out."},
             timeoutWithoutProgress);
  } else {
    if (reply.error && !reply.answersToo) response = nullptr;
    complete(std::move(completionHandler), response, reply.error, reply.latency.value_or(service_.latency));
  }
}

void SimulatedURLSessionService::complete(URLSession::CompletionHandler completionHandler,
                                          std::shared_ptr<URLResponse> response, std::optional<Error> error,
                                          double delay) {
  const std::uint64_t number = ++sent_;
  UnderWay &request = underWay_[number];
  request.completionHandler = std::move(completionHandler);
  request.ticket = scheduler_.after(delay, scheduler_.globalQueue(DispatchQueuePriority::standard),
                                    [this, number, response = std::move(response), error = std::move(error)] {
                                      const auto found = underWay_.find(number);
                                      if (found == underWay_.end()) return;
                                      const auto handler = std::move(found->second.completionHandler);
                                      underWay_.erase(found);
                                      scheduler_.say(error ? "request fails" : "answer arrives");
                                      handler(response, error);
                                    });
}

void SimulatedURLSessionService::switchOff() {
  off_ = true;
  for (const auto &[number, request] : std::exchange(underWay_, {})) scheduler_.cancel(request.ticket);
}

void SimulatedURLSessionService::loseConnections() {
  for (auto &[number, request] : std::exchange(underWay_, {})) {
    scheduler_.cancel(request.ticket);
    complete(std::move(request.completionHandler), nullptr,
             Error{urlErrors, connectionLost, "The network connection was lost."}, 0);
  }
}

}  // namespace kx
