#pragma once

#include "KXPublisher/platform/NetworkReachability.h"

namespace kx {

/// SCNetworkReachability. Handles are never released.
class AppleReachability : public NetworkReachability {
 public:
  NetworkReachabilityRef createWithAddress(const SocketAddress &address) override;
  std::optional<NetworkReachabilityFlags> getFlags(NetworkReachabilityRef target) override;
  bool setCallback(NetworkReachabilityRef target, NetworkReachabilityCallback callback,
                   const NetworkReachabilityContext &context) override;
  bool scheduleWithRunLoop(NetworkReachabilityRef target, const std::shared_ptr<RunLoop> &runLoop,
                           RunLoopMode mode) override;
  bool unscheduleFromRunLoop(NetworkReachabilityRef target, const std::shared_ptr<RunLoop> &runLoop,
                             RunLoopMode mode) override;
};

/// The SCNetworkReachabilityRef behind a handle of this service, which must not be null.
const void *systemHandleOf(NetworkReachabilityRef target);

}  // namespace kx
