#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/fleet/FleetScenario.h"
#include "tools/fleet/LoadMessage.h"
#include "tools/fleet/LoadOptions.h"
#include "tools/fleet/LoadPlan.h"
#include "tools/fleet/LoadRequests.h"
#include "tools/fleet/LoadStatistics.h"
#include "tools/fleet/LoadTransport.h"

namespace kx::fleet {

/// Has a scenario's devices send what they would, in real time, and counts what becomes of it.
class LoadRun : private LoadSender {
 public:
  using Clock = LoadTransport::Clock;

  /// `results`: a file that takes a line for each message; a null pointer for none. `connections`: the most.
  LoadRun(const FleetScenario &scenario, const LoadOptions &options, std::vector<LoadService> services,
          LoadMessage message, std::size_t connections, std::FILE *results);

  /// Devices that have a token when it begins log in. Ends sooner where `isEnding` says so, as below.
  void warmUp(const std::function<bool()> &isEnding);
  /// The load itself. `tell` is called about each second, with the seconds that have passed.
  void run(const std::function<bool()> &isEnding, const std::function<void(double)> &tell);

  const LoadStatistics &statistics() const { return statistics_; }
  std::size_t openRequests() const { return transport_.openRequests(); }
  /// Seconds that it takes where nothing ends it sooner: what was asked for, at most to the scenario's end.
  double plannedLength() const { return whenPlanned(end_); }
  /// Seconds that it took, without what it has waited for open requests at the end.
  double length() const { return length_; }

 private:
  struct Token {
    std::uint8_t process;
    std::string text;
  };

  bool sendLogin(std::uint32_t device, std::uint8_t process, Time now) override;
  bool sendMessage(std::uint32_t device, std::uint8_t process, Time now) override;
  void reportIsLost(Lost why) override { statistics_.reportIsLost(why); }

  bool isWithinRate();
  bool send(Endpoint endpoint, std::uint32_t device, std::uint8_t process, Time planned, LoadRequest request,
            std::function<void(const LoadOutcome &)> then);
  void isDone(Endpoint endpoint, double planned, const LoadOutcome &outcome);
  /// The token of an answer to a login, if it has brought one; kept for that process.
  bool keepToken(std::uint32_t device, std::uint8_t process, const LoadOutcome &outcome);
  void writeResult(const std::string &id, long status);
  const LoadRequests &requestsOf(std::uint32_t device) const { return requests_[device % requests_.size()]; }
  double elapsed() const;
  /// What time it is for the fleet; not before what it has lived to.
  Time fleetTime() const;
  double whenPlanned(Time time) const;

  const LoadOptions options_;
  const std::uint64_t seed_;
  const LoadMessage message_;
  LoadPlan plan_;
  const Time end_;
  const std::vector<std::uint32_t> withToken_;
  std::vector<LoadRequests> requests_;  ///< of each service
  LoadStatistics statistics_;
  std::unordered_map<std::uint32_t, Token> tokens_;
  std::FILE *const results_;
  double allowance_ = 0;  ///< requests that the rate leaves now
  Clock::time_point allowedSince_;
  Clock::time_point began_;
  Time reached_;  ///< the fleet has lived until then
  bool isOver_ = false;
  double length_ = 0;
  LoadTransport transport_;  // the first to go: its completions are about the others
};

}  // namespace kx::fleet
