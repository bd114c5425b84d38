#pragma once

#include <memory>
#include <optional>

#include "KXPublisher/platform/NetworkReachability.h"
#include "KXPublisher/platform/NotificationCenter.h"
#include "KXPublisher/platform/foundation/AtomicProperty.h"
#include "KXPublisher/providers/KXData.h"

namespace kx {

namespace constants {
inline constexpr const char *dataKeyConnectionType = "connectionType";
inline constexpr const char *dataValueConnectionTypeWifi = "WIFI";
inline constexpr const char *dataValueConnectionTypeCellular = "CELLULAR";

/// Posted on the default notification centre, with the provider as its sender, whenever reachability changes.
inline constexpr const char *kReachabilityDidChangeNotification = "kNetworkReachabilityDidChangeNotification";
}  // namespace constants

/// How the network is reached.
enum KXNetworkStatus {
  KXNetworkStatusNone = 0,      ///< not at all
  KXNetworkStatusWifi = 1,      ///< over anything but the cellular network
  KXNetworkStatusCellular = 2,  ///< over the cellular network
};

/// Reports the type of the connection. It watches how the zero address, which stands for any route, is
/// reached, and is recomputed on every change and at each return to the foreground; changes in the background
/// are not followed.
class KX_EXPORT KXConnection : public KXData {
 public:
  /// `sharedInstance`
  static std::shared_ptr<KXConnection> sharedInstance();

  /// `needsMonitoring`: false.
  bool needsMonitoring() const override { return false; }
  /// `hasPermissions`: true, always.
  bool hasPermissions() override { return true; }
  /// `computeData`: one key, or none when the network is not reached.
  std::shared_ptr<MutableDictionary> computeData() override;

  /// `currentReachabilityStatus`: the status now; `KXNetworkStatusNone` too when it cannot be read.
  KXNetworkStatus currentReachabilityStatus();
  /// `networkStatusForFlags:`
  static KXNetworkStatus networkStatusForFlags(NetworkReachabilityFlags flags);

  /// `startNotifier`: has changes reported on the calling thread's run loop.
  void startNotifier();
  /// `stopNotifier`: no longer has them reported there.
  void stopNotifier();
  /// `reachabilityDidChange:`: the observer of `kReachabilityDidChangeNotification`.
  void reachabilityDidChange(const std::shared_ptr<Notification> &notification);

  /// `reachability`: the handle, made at creation; absent when that failed.
  std::optional<NetworkReachabilityRef> reachability() const { return reachability_.get(); }
  /// `setReachability:`
  void setReachability(std::optional<NetworkReachabilityRef> reachability) {
    reachability_.set(reachability);
  }

 protected:
  KXConnection() = default;
  void instanceDidStartInit() override;

 private:
  friend class KXData;

  AtomicProperty<std::optional<NetworkReachabilityRef>> reachability_;
};

/// `ReachabilityCallback`: what the platform calls on a change of reachability; posts
/// `kReachabilityDidChangeNotification` with `info`, the provider, as the sender.
KX_EXPORT void ReachabilityCallback(NetworkReachabilityRef target, NetworkReachabilityFlags flags,
                                    const std::weak_ptr<Object> &info);

}  // namespace kx
