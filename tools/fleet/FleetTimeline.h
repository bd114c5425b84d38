#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/fleet/FleetDevice.h"

namespace kx::fleet {

/// What a service has seen in one second. A request counts in the second in which it was sent, with what
/// became of it.
struct FleetSecond {
  std::uint32_t logins = 0;
  std::uint32_t loginsFailed = 0;
  std::uint32_t messages = 0;
  std::uint32_t messagesRefused = 0;
  std::uint32_t messagesFailed = 0;
  std::uint32_t reportsWithoutToken = 0;       ///< never sent
  std::uint32_t reportsWithoutIdentifier = 0;  ///< never sent, by intention
  std::uint32_t connections = 0;               ///< new ones
  float openRequests = 0;                      ///< on average
  float openConnections = 0;

  /// Reports that have arrived nowhere and never will, though the device had an identifier.
  std::uint64_t lost() const { return std::uint64_t{messagesRefused} + messagesFailed + reportsWithoutToken; }
};

/// A forecast's seconds. What falls before the first or after the last is not counted.
class FleetTimeline {
 public:
  FleetTimeline(Time begins, std::size_t seconds)
      : begins_(begins), seconds_(seconds), deltas_(seconds + 1) {}

  /// The second of that time; one that nobody looks at when it is not of the forecast.
  FleetSecond &at(Time time) {
    const std::size_t index = indexOf(time);
    return time < begins_ || index >= seconds_.size() ? elsewhere_ : seconds_[index];
  }
  /// A request is open from then on for so long.
  void requestIsOpen(Time from, Time length) {
    isOpen(from, length, &FleetSecond::openRequests, &Delta::requests);
  }
  void connectionIsOpen(Time from, Time length) {
    isOpen(from, length, &FleetSecond::openConnections, &Delta::connections);
  }

  /// To be called once, at the end.
  std::vector<FleetSecond> seconds();

 private:
  struct Delta {
    std::int32_t requests = 0;
    std::int32_t connections = 0;
  };

  std::size_t indexOf(Time time) const { return static_cast<std::size_t>((time - begins_) / 1000); }
  void isOpen(Time from, Time length, float FleetSecond::*partly, std::int32_t Delta::*wholly);

  const Time begins_;
  std::vector<FleetSecond> seconds_;
  std::vector<Delta> deltas_;  ///< of what is open through the whole second, to the second before
  FleetSecond elsewhere_;
};

}  // namespace kx::fleet
