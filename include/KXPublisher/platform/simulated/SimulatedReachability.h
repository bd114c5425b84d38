#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "KXPublisher/platform/NetworkReachability.h"
#include "KXPublisher/platform/simulated/SimulatedRunLoop.h"
#include "KXPublisher/platform/simulated/SimulatedScheduler.h"

namespace kx {

/// How the network is reached. Changes are reported to handles that are scheduled on the main run loop; other
/// threads' loops never run here.
class KX_EXPORT SimulatedReachability : public NetworkReachability {
 public:
  SimulatedReachability(SimulatedScheduler &scheduler, SimulatedRunLoopService &runLoops);
  ~SimulatedReachability() override;

  bool creationSucceeds = true;
  bool registrationSucceeds = true;
  /// The flags now; absent when they cannot be read.
  std::optional<NetworkReachabilityFlags> flags = networkReachabilityFlagsReachable;

  /// The address that the last handle was made for.
  SocketAddress lastAddress{};
  int callbackRegistrations = 0;

  /// On how many run loops handles are scheduled, and on which of them.
  std::size_t schedules() const;
  bool scheduledOn(const std::shared_ptr<RunLoop> &runLoop) const;

  /// Whether requests get through: always, but where the flags tell that the network is not reached.
  bool carriesRequests() const { return !flags || (*flags & networkReachabilityFlagsReachable) != 0; }
  /// Called when the network is lost, before the handles report it.
  std::function<void()> whenLost{};

  /// The network changes: the handles that are scheduled report it. Requests that are under way when it is
  /// lost fail.
  void changeFlags(std::optional<NetworkReachabilityFlags> newFlags);

  NetworkReachabilityRef createWithAddress(const SocketAddress &address) override;
  std::optional<NetworkReachabilityFlags> getFlags(NetworkReachabilityRef target) override;
  bool setCallback(NetworkReachabilityRef target, NetworkReachabilityCallback callback,
                   const NetworkReachabilityContext &context) override;
  bool scheduleWithRunLoop(NetworkReachabilityRef target, const std::shared_ptr<RunLoop> &runLoop,
                           RunLoopMode mode) override;
  bool unscheduleFromRunLoop(NetworkReachabilityRef target, const std::shared_ptr<RunLoop> &runLoop,
                             RunLoopMode mode) override;

 private:
  class Target;

  SimulatedScheduler &scheduler_;
  SimulatedRunLoopService &runLoops_;
  std::vector<std::unique_ptr<Target>> targets_;
};

}  // namespace kx
