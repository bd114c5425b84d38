#include "KXPublisher/platform/simulated/SimulatedReachability.h"

#include <algorithm>

namespace kx {

class SimulatedReachability::Target : public NetworkReachabilityTarget {
 public:
  static Target *of(NetworkReachabilityRef reference) { return static_cast<Target *>(reference); }

  std::vector<std::shared_ptr<RunLoop>>::iterator find(const std::shared_ptr<RunLoop> &runLoop) {
    return std::find(runLoops.begin(), runLoops.end(), runLoop);
  }
  bool isScheduledOn(const std::shared_ptr<RunLoop> &runLoop) { return find(runLoop) != runLoops.end(); }

  NetworkReachabilityCallback callback = nullptr;
  NetworkReachabilityContext context;
  std::vector<std::shared_ptr<RunLoop>> runLoops;
};

SimulatedReachability::SimulatedReachability(SimulatedScheduler &scheduler, RunLoopService &runLoops)
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
  for (const auto &target : targets_) {
    if (target->callback == nullptr || !target->isScheduledOn(runLoops_.mainRunLoop())) continue;
    scheduler_.mainQueue().async([target = target.get(), flags = newFlags.value_or(0)] {
      target->callback(target, flags, target->context.info);
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
                                                const std::shared_ptr<RunLoop> &runLoop,
                                                RunLoopMode /*mode*/) {
  if (target == nullptr) return false;
  Target &scheduled = *Target::of(target);
  if (!scheduled.isScheduledOn(runLoop)) scheduled.runLoops.push_back(runLoop);
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
