#include "KXPublisher/platform/simulated/SimulatedReachability.h"

#include <algorithm>
#include <utility>

namespace kx {

class SimulatedReachability::Target : public NetworkReachabilityTarget {
 public:
  static Target *of(NetworkReachabilityRef reference) { return static_cast<Target *>(reference); }

  using Schedules = std::vector<std::pair<std::shared_ptr<RunLoop>, RunLoopMode>>;

  Schedules::iterator find(const std::shared_ptr<RunLoop> &runLoop) {
    return std::find_if(runLoops.begin(), runLoops.end(),
                        [&runLoop](const auto &schedule) { return schedule.first == runLoop; });
  }
  bool isScheduledOn(const std::shared_ptr<RunLoop> &runLoop) { return find(runLoop) != runLoops.end(); }

  NetworkReachabilityCallback callback = nullptr;
  NetworkReachabilityContext context;
  Schedules runLoops;
};

SimulatedReachability::SimulatedReachability(SimulatedScheduler &scheduler, SimulatedRunLoopService &runLoops)
    : scheduler_(scheduler), runLoops_(runLoops) {}

SimulatedReachability::~SimulatedReachability() = default;

std::size_t SimulatedReachability::schedules() const {
  std::size_t count = 0;
  for (const auto &target : targets_) count += target->runLoops.size();
  return count;
}

bool SimulatedReachability::scheduledOn(const std::shared_ptr<RunLoop> &runLoop) const {
  return std::any_of(targets_.begin(), targets_.end(),
                     [&runLoop](const auto &target) { return target->isScheduledOn(runLoop); });
}

void SimulatedReachability::changeFlags(std::optional<NetworkReachabilityFlags> newFlags) {
  flags = newFlags;
  if (!carriesRequests() && whenLost != nullptr) whenLost();
  for (const auto &target : targets_) {
    const auto schedule = target->find(runLoops_.mainRunLoop());
    if (target->callback == nullptr || schedule == target->runLoops.end()) continue;
    scheduler_.mainQueue().async(
        [this, mode = schedule->second, target = target.get(), now = newFlags.value_or(0)] {
          runLoops_.whenServed(mode, [target, now] { target->callback(target, now, target->context.info); });
        });
  }
}

NetworkReachabilityRef SimulatedReachability::createWithAddress(const SocketAddress &address) {
  if (!creationSucceeds) return nullptr;
  lastAddress = address;
  targets_.push_back(std::make_unique<Target>());
  return targets_.back().get();
}

std::optional<NetworkReachabilityFlags> SimulatedReachability::getFlags(NetworkReachabilityRef target) {
  return target == nullptr ? std::nullopt : flags;
}

bool SimulatedReachability::setCallback(NetworkReachabilityRef target, NetworkReachabilityCallback callback,
                                        const NetworkReachabilityContext &context) {
  ++callbackRegistrations;
  if (target == nullptr || !registrationSucceeds) return false;
  Target::of(target)->callback = callback;
  Target::of(target)->context = context;
  return true;
}

bool SimulatedReachability::scheduleWithRunLoop(NetworkReachabilityRef target,
                                                const std::shared_ptr<RunLoop> &runLoop, RunLoopMode mode) {
  scheduler_.yield();
  if (target == nullptr) return false;
  Target &scheduled = *Target::of(target);
  if (!scheduled.isScheduledOn(runLoop)) scheduled.runLoops.emplace_back(runLoop, mode);
  return true;
}

bool SimulatedReachability::unscheduleFromRunLoop(NetworkReachabilityRef target,
                                                  const std::shared_ptr<RunLoop> &runLoop,
                                                  RunLoopMode /*mode*/) {
  if (target == nullptr) return false;
  Target &scheduled = *Target::of(target);
  if (!scheduled.isScheduledOn(runLoop)) return false;
  scheduled.runLoops.erase(scheduled.find(runLoop));
  return true;
}

}  // namespace kx
