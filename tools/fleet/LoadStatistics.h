#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/fleet/FleetDevice.h"
#include "tools/fleet/LatencyHistogram.h"

namespace kx::fleet {

enum class Endpoint : std::uint8_t { login, message };
constexpr std::array<const char *, 2> endpointNames{"login", "message"};

/// What became of one endpoint's requests.
struct EndpointStatistics {
  std::uint64_t planned = 0;
  std::uint64_t sent = 0;
  std::uint64_t shedByRate = 0;
  std::uint64_t shedByConnections = 0;
  std::uint64_t answered = 0;
  std::uint64_t failed = 0;                       ///< answered by another status than 2xx, or not at all
  std::map<long, std::uint64_t> statuses;         ///< of the answers
  std::map<std::string, std::uint64_t> problems;  ///< of what was not answered
  LatencyHistogram latency;  ///< of the answers, from when the plan wanted the request sent
};

/// The same of a second, both endpoints together.
struct LoadSecond {
  std::uint32_t planned = 0;
  std::uint32_t sent = 0;
  std::uint32_t shed = 0;
  std::uint32_t answered = 0;
  std::uint32_t failed = 0;
  double median = 0;  ///< seconds, of the answers that have come in it
  double p99 = 0;
  double slowest = 0;
};

/// What has come of a load. Times are in seconds since its beginning.
class LoadStatistics {
 public:
  void isPlanned(Endpoint endpoint, double now);
  /// `late`: after the plan wanted it, for the load's own reasons.
  void isSent(Endpoint endpoint, double now, double late);
  void isShed(Endpoint endpoint, double now, bool byRate);
  void isAnswered(Endpoint endpoint, double now, long status, double latency);
  void isNotAnswered(Endpoint endpoint, double now, const std::string &problem);
  void reportIsLost(Lost why);

  const EndpointStatistics &of(Endpoint endpoint) const {
    return endpoints_.at(static_cast<std::size_t>(endpoint));
  }
  /// With the one that is not over yet.
  std::vector<LoadSecond> seconds() const;
  const LatencyHistogram &lateness() const { return lateness_; }
  std::uint64_t lostWithoutToken() const { return lostWithoutToken_; }
  std::uint64_t lostWithoutIdentifier() const { return lostWithoutIdentifier_; }

  /// Of both endpoints.
  std::uint64_t sum(std::uint64_t EndpointStatistics::*number) const;
  std::uint64_t shed() const;
  /// Of all that was sent, how much failed; and of all that was planned, how much was not sent. 0 to 1.
  double errorShare() const;
  double shedShare() const;

  // What the connections were.
  std::uint64_t opened = 0;   ///< with a whole handshake
  std::uint64_t resumed = 0;  ///< with one that a TLS session has shortened
  std::uint64_t reused = 0;   ///< requests that have found one
  std::size_t mostConnected = 0;
  // Of what came before the beginning.
  std::uint64_t warmUpWanted = 0;
  std::uint64_t warmUpDone = 0;

 private:
  EndpointStatistics &at(Endpoint endpoint) { return endpoints_.at(static_cast<std::size_t>(endpoint)); }
  LoadSecond &second(double now);
  static void close(LoadSecond &second, const LatencyHistogram &latency);

  std::array<EndpointStatistics, 2> endpoints_;
  std::vector<LoadSecond> seconds_;
  LatencyHistogram latencyOfSecond_;  ///< of the last one
  LatencyHistogram lateness_;
  std::uint64_t lostWithoutToken_ = 0;
  std::uint64_t lostWithoutIdentifier_ = 0;
};

}  // namespace kx::fleet
