#pragma once

#include <memory>
#include <optional>

#include "platform/NetworkReachability.h"
#include "platform/Telephony.h"

// The services that this platform does not have: their messages' keys stay absent.

namespace kx {

class AbsentTelephony : public TelephonyService {
 public:
  std::shared_ptr<TelephonyNetworkInfo> makeTelephonyNetworkInfo() override { return nullptr; }
};

class AbsentReachability : public NetworkReachability {
 public:
  NetworkReachabilityRef createWithAddress(const SocketAddress & /*address*/) override { return nullptr; }
  std::optional<NetworkReachabilityFlags> getFlags(NetworkReachabilityRef /*target*/) override {
    return std::nullopt;
  }
  bool setCallback(NetworkReachabilityRef /*target*/, NetworkReachabilityCallback /*callback*/,
                   const NetworkReachabilityContext & /*context*/) override {
    return false;
  }
  bool scheduleWithRunLoop(NetworkReachabilityRef /*target*/, const std::shared_ptr<RunLoop> & /*runLoop*/,
                           RunLoopMode /*mode*/) override {
    return false;
  }
  bool unscheduleFromRunLoop(NetworkReachabilityRef /*target*/, const std::shared_ptr<RunLoop> & /*runLoop*/,
                             RunLoopMode /*mode*/) override {
    return false;
  }
};

}  // namespace kx
