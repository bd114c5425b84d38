#include "platform/linux/network/LinuxReachability.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

#include "platform/linux/bus/SessionBus.h"
#include "platform/linux/bus/SystemBus.h"
#include "platform/linux/network/NetworkManagerClient.h"
#include "platform/linux/network/NetworkRoute.h"
#include "platform/linux/network/NetworkWatch.h"
#include "platform/linux/network/PortalNetworkMonitor.h"

namespace kx {

namespace {

constexpr std::size_t familyOffset = 1;
constexpr std::size_t addressOffset = 4;

NetworkReachabilityFlags flagsOf(const NetworkInterface &interface, NetworkManagerClient::Bearer bearer) {
  using Bearer = NetworkManagerClient::Bearer;
  if (!interface.isRunning) return 0;
  const bool askBearer = interface.isTunnel && bearer != Bearer::unknown;
  const bool isCellular = askBearer ? bearer == Bearer::cellular : interface.isCellular;
  return networkReachabilityFlagsReachable | (isCellular ? networkReachabilityFlagsIsWWAN : 0);
}

}  // namespace

/// A target's being scheduled on one run loop.
struct LinuxReachability::Schedule {
  std::shared_ptr<NetworkWatch> watch;
  /// Those of which the callback knows, or at first whoever has asked; absent until then.
  std::optional<NetworkReachabilityFlags> flags;
  /// Others that somebody has been told since then, who takes them for the latest.
  std::optional<NetworkReachabilityFlags> flagsElsewhere;
};

class LinuxReachability::Target : public NetworkReachabilityTarget {
 public:
  explicit Target(in_addr address) : address_(address) {}

  static Target *of(NetworkReachabilityRef reference) { return static_cast<Target *>(reference); }

  std::optional<NetworkInterface> interface() const {
    return address_.s_addr == INADDR_ANY ? interfaceOfAnyRoute() : interfaceOfRouteTo(address_);
  }

  bool has(const std::shared_ptr<Schedule> &schedule) const {
    return std::any_of(schedules.begin(), schedules.end(),
                       [&schedule](const auto &entry) { return entry.second == schedule; });
  }

  // Guarded by the service's mutex.
  NetworkReachabilityCallback callback = nullptr;
  NetworkReachabilityContext context;
  std::map<std::shared_ptr<RunLoop>, std::shared_ptr<Schedule>> schedules;

 private:
  const in_addr address_;
};

LinuxReachability::LinuxReachability(const std::shared_ptr<LinuxRunLoop> &mainRunLoop,
                                     const std::shared_ptr<SystemBus> &bus,
                                     const std::shared_ptr<SessionBus> &sessionBus)
    : networkManager_(std::make_shared<NetworkManagerClient>(mainRunLoop, bus)),
      portal_(sessionBus == nullptr ? nullptr
                                    : std::make_shared<PortalNetworkMonitor>(mainRunLoop, sessionBus)) {}

LinuxReachability::~LinuxReachability() {
  for (const auto &target : targets_) {
    for (const auto &[runLoop, schedule] : target->schedules) removeWatch(schedule->watch);
  }
}

void LinuxReachability::removeWatch(const std::shared_ptr<NetworkWatch> &watch) {
  networkManager_->removeWatch(watch);
  if (portal_ != nullptr) portal_->removeWatch(watch);
}

std::optional<NetworkReachabilityFlags> LinuxReachability::flagsOfPortal() const {
  using Availability = PortalNetworkMonitor::Availability;
  const auto availability = portal_ == nullptr ? Availability::unknown : portal_->availability();
  if (availability == Availability::unknown) return std::nullopt;
  return availability == Availability::available ? networkReachabilityFlagsReachable : 0;
}

NetworkReachabilityRef LinuxReachability::createWithAddress(const SocketAddress &address) {
  if (address[0] != address.size() || address[familyOffset] != AF_INET) return nullptr;
  in_addr internetAddress{};
  std::memcpy(&internetAddress, address.data() + addressOffset, sizeof(internetAddress));
  const std::lock_guard<std::mutex> lock(mutex_);
  targets_.push_back(std::make_unique<Target>(internetAddress));
  return targets_.back().get();
}

std::optional<NetworkReachabilityFlags> LinuxReachability::getFlags(NetworkReachabilityRef target) {
  if (target == nullptr) return std::nullopt;
  const Target &asked = *Target::of(target);
  const auto interface = asked.interface();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto &[runLoop, schedule] : asked.schedules) {
      if (!schedule->flags) follow(interface, *schedule);
    }
  }
  const auto flags = interface ? flagsOf(*interface, networkManager_->bearer()) : flagsOfPortal();
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const auto &[runLoop, schedule] : asked.schedules) {
    if (!schedule->flags) {
      schedule->flags = flags.value_or(0);
    } else if (schedule->flags != flags.value_or(0)) {
      // All may be as it was before the callback hears of it.
      schedule->flagsElsewhere = flags.value_or(0);
      schedule->watch->checkSoon();
    }
  }
  return flags;
}

bool LinuxReachability::setCallback(NetworkReachabilityRef target, NetworkReachabilityCallback callback,
                                    const NetworkReachabilityContext &context) {
  if (target == nullptr) return false;
  const std::lock_guard<std::mutex> lock(mutex_);
  Target::of(target)->callback = callback;
  Target::of(target)->context = context;
  return true;
}

bool LinuxReachability::scheduleWithRunLoop(NetworkReachabilityRef target,
                                            const std::shared_ptr<RunLoop> &runLoop, RunLoopMode /*mode*/) {
  const auto linuxRunLoop = std::dynamic_pointer_cast<LinuxRunLoop>(runLoop);
  if (target == nullptr || linuxRunLoop == nullptr) return false;
  Target &scheduled = *Target::of(target);
  const auto schedule = std::make_shared<Schedule>();
  const auto mayHaveChanged = [this, &scheduled, weak = std::weak_ptr<Schedule>(schedule)] {
    if (const auto held = weak.lock()) check(scheduled, held);
  };
  const std::lock_guard<std::mutex> lock(mutex_);
  if (scheduled.schedules.count(runLoop) != 0) return true;
  schedule->watch = NetworkWatch::open(mayHaveChanged);
  if (schedule->watch == nullptr && portal_ != nullptr) schedule->watch = NetworkWatch::deaf(mayHaveChanged);
  if (schedule->watch == nullptr) return false;
  scheduled.schedules.emplace(runLoop, schedule);
  schedule->watch->attach(linuxRunLoop->context());
  return true;
}

bool LinuxReachability::unscheduleFromRunLoop(NetworkReachabilityRef target,
                                              const std::shared_ptr<RunLoop> &runLoop, RunLoopMode /*mode*/) {
  if (target == nullptr) return false;
  Target &scheduled = *Target::of(target);
  std::shared_ptr<Schedule> schedule;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = scheduled.schedules.find(runLoop);
    if (found == scheduled.schedules.end()) return false;
    schedule = std::move(found->second);
    scheduled.schedules.erase(found);
  }
  removeWatch(schedule->watch);
  return true;
}

void LinuxReachability::follow(const std::optional<NetworkInterface> &interface, const Schedule &schedule) {
  if (!interface) {
    if (portal_ != nullptr) portal_->addWatch(schedule.watch);
  } else if (interface->isTunnel) {
    networkManager_->addWatch(schedule.watch);
  } else {
    networkManager_->removeWatch(schedule.watch);
  }
}

NetworkReachabilityFlags LinuxReachability::flagsFor(const Target &target,
                                                     const std::shared_ptr<Schedule> &schedule) {
  const auto interface = target.interface();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!target.has(schedule)) return 0;  // no longer, and nothing must keep its watch alive
    follow(interface, *schedule);
  }
  return interface ? flagsOf(*interface, networkManager_->bearer()) : flagsOfPortal().value_or(0);
}

void LinuxReachability::check(Target &target, const std::shared_ptr<Schedule> &schedule) {
  const NetworkReachabilityFlags flags = flagsFor(target, schedule);
  NetworkReachabilityCallback callback = nullptr;
  std::weak_ptr<Object> info;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!target.has(schedule)) return;
    const auto elsewhere = std::exchange(schedule->flagsElsewhere, std::nullopt);
    if (schedule->flags == flags && elsewhere.value_or(flags) == flags) return;
    schedule->flags = flags;
    callback = target.callback;
    info = target.context.info;
  }
  if (callback != nullptr) callback(&target, flags, info);
}

}  // namespace kx
