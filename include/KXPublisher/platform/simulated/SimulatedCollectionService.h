#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KXPublisher/platform/Clock.h"
#include "KXPublisher/platform/URLSession.h"
#include "KXPublisher/platform/simulated/SimulatedScheduler.h"

namespace kx {

/// A request as it reached the simulated service.
struct KX_EXPORT SimulatedRequest {
  double time = 0;  ///< uptime of the device when it was sent, in seconds
  std::string url;
  std::string HTTPMethod;
  HTTPHeaderFields headerFields;
  std::optional<Data> body;  ///< as it was sent

  /// The path of the URL, "/api_v0_0_0/post_msg".
  std::string path() const;
  /// The value of a header field; absent when the request does not carry it.
  std::optional<std::string> header(const std::string &name) const;
  /// The body as text, without its gzip wrapping; absent when it is no single, whole gzip member.
  std::optional<std::string> text() const;
};

/// What the simulated service, or the network before it, answers.
struct KX_EXPORT SimulatedReply {
  long statusCode = 200;
  HTTPURLResponse::HeaderFields headerFields;
  std::optional<double> latency;  ///< seconds from the request to the completion; absent: the service's own
  std::optional<Error> error;     ///< a transport error, instead of an answer
  bool answersToo = false;        ///< the answer comes beside the error, as the system may have it
  bool isHTTP = true;             ///< otherwise the answer is one of an unknown kind
  bool never = false;             ///< nothing comes back; the session gives up after 60 s

  static SimulatedReply status(long statusCode);
  static SimulatedReply token(const std::string &accessToken);
  static SimulatedReply failure(const std::string &reason);
  static SimulatedReply silence();
};

/// The collection service behind the simulated device's URL sessions, for every host name.
///
/// By itself it does what the real one does: the login endpoint gives out "token-1", "token-2" and so on, and
/// the message endpoint takes messages that carry one of them and answers 403 to others. `script` puts other
/// answers before that, once each and in order; `respond` replaces it for good, and may call `defaultReply`.
class KX_EXPORT SimulatedCollectionService {
 public:
  static constexpr const char *loginPath = "/api_v0_0_0/do_login";
  static constexpr const char *messagePath = "/api_v0_0_0/post_msg";

  std::function<SimulatedReply(const SimulatedRequest &)> respond;
  /// What the service does by itself.
  SimulatedReply defaultReply(const SimulatedRequest &request);
  /// How many seconds an answer takes that says nothing else of it.
  double latency = 0.1;

  /// Every request, in the order of sending; the only thing of a device that grows as long as it runs.
  std::vector<SimulatedRequest> requests;
  /// Where that is too much: only the latest, this many.
  std::optional<std::size_t> mostRequests;

  SimulatedCollectionService();

  /// Answers the next requests for that path so, one after the other.
  void script(const std::string &path, std::vector<SimulatedReply> replies);
  /// From now on no token that was given out so far is accepted.
  void revokeTokens() { accepted_.clear(); }

  std::vector<SimulatedRequest> logins() const { return requestsFor(loginPath); }
  std::vector<SimulatedRequest> messages() const { return requestsFor(messagePath); }

 private:
  friend class SimulatedURLSessionService;

  SimulatedReply receive(const SimulatedRequest &request);
  std::vector<SimulatedRequest> requestsFor(const std::string &path) const;

  std::map<std::string, std::vector<SimulatedReply>> scripted_;
  std::vector<std::string> accepted_;
  int tokens_ = 0;
};

/// URL sessions that reach the simulated service. Completions arrive on the default-priority global queue.
class KX_EXPORT SimulatedURLSessionService : public URLSessionService {
 public:
  SimulatedURLSessionService(SimulatedScheduler &scheduler, SimulatedCollectionService &service)
      : scheduler_(scheduler), service_(service) {}

  /// How many sessions were made, how many of them were told to finish, and how many there are.
  int sessions = 0;
  int invalidatedSessions = 0;
  int sessionsAlive = 0;
  /// Whether requests get through; those that do not fail as without a network. Empty: they do.
  std::function<bool()> networkIsReached{};
  /// How many requests wait for an answer.
  std::size_t requestsUnderWay() const { return underWay_.size(); }
  /// All requests that wait for an answer fail: the connection is gone.
  void loseConnections();
  /// No request is sent any more, and those that are under way are never answered; what waits for them is
  /// released.
  void switchOff();
  /// Called once, while the next session is made: something else happens just then.
  std::function<void()> whileNextSessionIsMade{};

  /// Takes what has a scheme, a host without blanks or control characters, and a path.
  std::optional<URL> URLWithString(const std::string &text) override;
  std::shared_ptr<URLSession> sessionWithDefaultConfiguration() override;

 private:
  class Session;
  class Task;
  struct UnderWay {
    URLSession::CompletionHandler completionHandler;
    SimulatedScheduler::Ticket ticket;
  };

  void send(const URLRequest &request, const std::optional<Data> &body,
            URLSession::CompletionHandler completionHandler);
  void sendThroughNetwork(const URLRequest &request, const std::optional<Data> &body,
                          URLSession::CompletionHandler completionHandler);

  /// Has the completion handler called, once, after so many seconds.
  void complete(URLSession::CompletionHandler completionHandler, std::shared_ptr<URLResponse> response,
                std::optional<Error> error, double delay);

  SimulatedScheduler &scheduler_;
  SimulatedCollectionService &service_;
  bool off_ = false;
  std::uint64_t sent_ = 0;
  std::map<std::uint64_t, UnderWay> underWay_{};
};

}  // namespace kx
