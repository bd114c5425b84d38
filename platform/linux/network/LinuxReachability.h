#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "KXPublisher/platform/NetworkReachability.h"
#include "platform/linux/network/NetworkInterface.h"
#include "platform/linux/threads/LinuxRunLoop.h"

namespace kx {

class NetworkManagerClient;
class NetworkWatch;
class PortalNetworkMonitor;
class SessionBus;
class SystemBus;

/// Reachability by the kernel's own routes: an address is reached when the interface that they lead to is
/// running, and over the cellular network when that interface is a modem's. The zero address is reached when
/// there is a way to anywhere, by IPv4 or IPv6.
///
/// Behind a tunnel the kernel does not show whose network carries the traffic. While a handle is scheduled,
/// NetworkManager is asked, if it runs; until it has answered, and without it, a tunnel counts as no cellular
/// network, and a point-to-point link (PPP) as one.
///
/// Where a sandbox has the kernel refuse to tell, its network portal is asked while a handle is scheduled: it
/// knows whether there is a way to anywhere, which stands for every address then, and nothing of modems.
///
/// Every call returns at once. Changes are looked at 50 ms after the first of a burst, so that one that is
/// undone by then is not reported. To schedule a handle reads nothing yet: what has changed is reckoned from
/// when its flags are first asked for, and news that come before that are reported as they are. Nothing
/// happens, and no socket is open, while no handle is scheduled.
class LinuxReachability : public NetworkReachability {
 public:
  /// `sessionBus`: of a sandbox, to find portals on; null outside of one.
  LinuxReachability(const std::shared_ptr<LinuxRunLoop> &mainRunLoop, const std::shared_ptr<SystemBus> &bus,
                    const std::shared_ptr<SessionBus> &sessionBus = nullptr);
  /// To be called while no other thread runs a loop that a handle is scheduled on.
  ~LinuxReachability() override;

  NetworkReachabilityRef createWithAddress(const SocketAddress &address) override;
  /// Absent when the kernel refuses to tell, and no portal has told.
  std::optional<NetworkReachabilityFlags> getFlags(NetworkReachabilityRef target) override;
  bool setCallback(NetworkReachabilityRef target, NetworkReachabilityCallback callback,
                   const NetworkReachabilityContext &context) override;
  /// False too when the kernel refuses and there are no portals. GLib knows no modes: changes are reported in
  /// all of them.
  bool scheduleWithRunLoop(NetworkReachabilityRef target, const std::shared_ptr<RunLoop> &runLoop,
                           RunLoopMode mode) override;
  bool unscheduleFromRunLoop(NetworkReachabilityRef target, const std::shared_ptr<RunLoop> &runLoop,
                             RunLoopMode mode) override;

 private:
  class Target;
  struct Schedule;

  /// Reads the flags for a schedule, and sees to it that a change beneath a tunnel is noticed.
  NetworkReachabilityFlags flagsFor(const Target &target, const std::shared_ptr<Schedule> &schedule);
  void check(Target &target, const std::shared_ptr<Schedule> &schedule);
  /// Sees to it that a change is noticed that the kernel tells nothing of: beneath a tunnel, or where it
  /// refuses to tell anything. With the lock held.
  void follow(const std::optional<NetworkInterface> &interface, const Schedule &schedule);
  /// Absent when no portal has told.
  std::optional<NetworkReachabilityFlags> flagsOfPortal() const;
  void removeWatch(const std::shared_ptr<NetworkWatch> &watch);

  const std::shared_ptr<NetworkManagerClient> networkManager_;
  const std::shared_ptr<PortalNetworkMonitor> portal_;  ///< null outside of a sandbox
  std::mutex mutex_;                                    ///< guards what the targets hold
  std::vector<std::unique_ptr<Target>> targets_;
};

}  // namespace kx
