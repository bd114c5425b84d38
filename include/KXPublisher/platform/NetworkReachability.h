#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "KXPublisher/platform/RunLoop.h"
#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// How an address is reached (SCNetworkReachabilityFlags).
using NetworkReachabilityFlags = std::uint32_t;
inline constexpr NetworkReachabilityFlags networkReachabilityFlagsReachable = 0x2;
inline constexpr NetworkReachabilityFlags networkReachabilityFlagsConnectionRequired = 0x4;
inline constexpr NetworkReachabilityFlags networkReachabilityFlagsConnectionOnTraffic = 0x8;
inline constexpr NetworkReachabilityFlags networkReachabilityFlagsInterventionRequired = 0x10;
inline constexpr NetworkReachabilityFlags networkReachabilityFlagsConnectionOnDemand = 0x20;
inline constexpr NetworkReachabilityFlags networkReachabilityFlagsIsWWAN = 0x40000;

/// An IPv4 socket address as it lies in memory: length, family, port (2 bytes), address (4 bytes), padding.
using SocketAddress = std::array<std::uint8_t, 16>;

/// What a reachability handle points to; each platform derives its own.
class KX_EXPORT NetworkReachabilityTarget {
 public:
  virtual ~NetworkReachabilityTarget() = default;
};

/// A reachability handle (SCNetworkReachabilityRef), owned by the platform, that stays good as long as the
/// process. A null pointer stands for a handle that could not be made; every operation below refuses it.
using NetworkReachabilityRef = NetworkReachabilityTarget *;

/// Called on the thread of the run loop that the handle is scheduled on, whenever the flags change. `info` is
/// the context's.
using NetworkReachabilityCallback = void (*)(NetworkReachabilityRef target, NetworkReachabilityFlags flags,
                                             const std::weak_ptr<Object> &info);

/// What is passed to the callback (SCNetworkReachabilityContext).
struct NetworkReachabilityContext {
  long version = 0;
  std::weak_ptr<Object> info;  ///< not kept alive
};

/// The network reachability service (SCNetworkReachability). May be used from any thread.
class KX_EXPORT NetworkReachability {
 public:
  virtual ~NetworkReachability() = default;

  /// `SCNetworkReachabilityCreateWithAddress`: a handle for that address, the zero address standing for any
  /// route; null on failure.
  virtual NetworkReachabilityRef createWithAddress(const SocketAddress &address) = 0;

  /// `SCNetworkReachabilityGetFlags`: the flags now; absent when they cannot be read. Does not wait for a
  /// network.
  virtual std::optional<NetworkReachabilityFlags> getFlags(NetworkReachabilityRef target) = 0;

  /// `SCNetworkReachabilitySetCallback`: what to call on a change, replacing an earlier callback. False on
  /// failure.
  virtual bool setCallback(NetworkReachabilityRef target, NetworkReachabilityCallback callback,
                           const NetworkReachabilityContext &context) = 0;

  /// `SCNetworkReachabilityScheduleWithRunLoop`: from now on changes are reported on that loop. False on
  /// failure.
  virtual bool scheduleWithRunLoop(NetworkReachabilityRef target, const std::shared_ptr<RunLoop> &runLoop,
                                   RunLoopMode mode) = 0;

  /// `SCNetworkReachabilityUnscheduleFromRunLoop`: changes are no longer reported there. False when the
  /// handle was not scheduled on that loop.
  virtual bool unscheduleFromRunLoop(NetworkReachabilityRef target, const std::shared_ptr<RunLoop> &runLoop,
                                     RunLoopMode mode) = 0;
};

}  // namespace kx
