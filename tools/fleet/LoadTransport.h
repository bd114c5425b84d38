#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/https/CurlSettings.h"
#include "platform/linux/https/CurlSockets.h"
#include "platform/linux/https/CurlTrust.h"
#include "tools/fleet/LoadRequests.h"
#include "tools/fleet/LoadService.h"

namespace kx::fleet {

class LoadClient;

/// What became of a request.
struct LoadOutcome {
  enum class Connection { none, opened, resumed, reused };

  std::shared_ptr<URLResponse> response;  ///< absent when there is no answer
  std::string problem;                    ///< why not: "refused", "timeout", "TLS", "closed" or the like
  Connection connection = Connection::none;
};

/// Sends the requests of many devices at the same time, on one thread, with the library's own requests. Each
/// device has its own connections and TLS sessions, as if it were the only one, and they live as long as the
/// library's.
class LoadTransport {
 public:
  using Clock = std::chrono::steady_clock;
  using Completion = std::function<void(const LoadOutcome &outcome)>;

  struct Limits {
    std::size_t connections = 1000;  ///< devices that are connected at a time
    std::size_t sessions = 20'000;   ///< devices whose TLS sessions are kept while they are not
    std::chrono::milliseconds linger = std::chrono::seconds(6);
  };
  /// A connected device has a socket and the pair of curl's by which its loop is woken.
  static constexpr std::size_t descriptorsPerConnection = 3;

  /// It connects to the services' addresses and to no other one. Throws `std::runtime_error` where it cannot
  /// be made.
  LoadTransport(std::vector<LoadService> services, std::optional<std::string> certificateAuthorityFile,
                Limits limits);
  ~LoadTransport();
  LoadTransport(const LoadTransport &) = delete;
  LoadTransport &operator=(const LoadTransport &) = delete;

  /// Sends a request for a device whose process has that number; what another process of it had is gone then.
  /// False: there are as many connections as there may be, all in use, and nothing is sent. The completion is
  /// called by `turn`, or never where this object ends before.
  bool send(std::uint32_t device, std::uint8_t process, LoadRequest request, Completion completion);

  /// Lets time pass for all of them: at most so long, less when something happens.
  void turn(std::chrono::milliseconds atMost);

  /// Ends all that is open; none of it is answered any more.
  void endAll();

  std::size_t openRequests() const { return openRequests_; }
  std::size_t connected() const { return connected_.size() + lingering_.size(); }
  /// The most there were at a time.
  std::size_t mostConnected() const { return mostConnected_; }

 private:
  friend class LoadClient;

  /// In order of time, of each client at most once.
  using Queue = std::set<std::pair<Clock::time_point, LoadClient *>>;

  bool makeRoom();
  void act(LoadClient &client, int descriptor, int mask);
  void finish(LoadClient &client);
  void settle(LoadClient &client);
  void disconnect(LoadClient &client);
  void fallAsleep(LoadClient &client);
  void forget(LoadClient &client);
  void expire();
  void watch(LoadClient &client, int descriptor, unsigned events);
  bool isAllowed(const std::string &address) const;

  const std::vector<LoadService> services_;
  const Limits limits_;
  CurlSettings settings_;
  CurlTrust trust_;
  CurlSockets sockets_;
  std::unique_ptr<curl_slist, void (*)(curl_slist *)> resolved_;  ///< the services' addresses, for curl
  int epoll_ = -1;

  std::map<std::uint32_t, std::unique_ptr<LoadClient>> clients_;  ///< by device
  std::vector<std::unique_ptr<LoadClient>> ended_;  ///< whose process has, with requests on their way
  std::vector<LoadClient *> byDescriptor_;
  std::set<LoadClient *> connected_;  ///< with requests on their way
  Queue timers_;
  Queue lingering_;  ///< connected, with nothing to do, until then
  Queue asleep_;     ///< not connected, since then
  std::size_t openRequests_ = 0;
  std::size_t mostConnected_ = 0;
  Clock::time_point nextExpiry_;
};

}  // namespace kx::fleet
