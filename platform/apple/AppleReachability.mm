#include "platform/apple/AppleReachability.h"

#import <SystemConfiguration/SystemConfiguration.h>
#include <sys/socket.h>

#include <cstring>
#include <mutex>

#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleDeprecated.h"
#include "platform/apple/AppleRunLoop.h"

namespace kx {

// SCNetworkReachability is what the library's connection type is defined by: the flags of one address, on the
// main run loop. Its successor begins with iOS 12, has no flags, and is told on queues.

namespace {

/// A handle, and whom its changes are reported to. Lives as long as the process.
class Target : public NetworkReachabilityTarget {
 public:
  explicit Target(SCNetworkReachabilityRef handle) : handle_(handle) {}

  static Target &of(NetworkReachabilityRef reference) { return *static_cast<Target *>(reference); }

  SCNetworkReachabilityRef handle() const { return handle_; }

  KX_DEPRECATED_BEGIN
  bool setCallback(NetworkReachabilityCallback callback, const NetworkReachabilityContext &context) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      callback_ = callback;
      info_ = context.info;
    }
    SCNetworkReachabilityContext systemContext{context.version, this, nullptr, nullptr, nullptr};
    return SCNetworkReachabilitySetCallback(handle_, &changed, &systemContext) != 0;
  }
  KX_DEPRECATED_END

 private:
  static void changed(SCNetworkReachabilityRef /*handle*/, SCNetworkReachabilityFlags flags, void *info) {
    runAtBoundary([flags, info] { static_cast<Target *>(info)->report(flags); });
  }

  void report(NetworkReachabilityFlags flags) {
    NetworkReachabilityCallback callback = nullptr;
    std::weak_ptr<Object> info;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      callback = callback_;
      info = info_;
    }
    if (callback != nullptr) callback(this, flags, info);
  }

  const SCNetworkReachabilityRef handle_;
  std::mutex mutex_;
  NetworkReachabilityCallback callback_ = nullptr;
  std::weak_ptr<Object> info_;
};

CFStringRef cfNameOf(RunLoopMode mode) {
  return mode == RunLoopMode::commonModes ? kCFRunLoopCommonModes : kCFRunLoopDefaultMode;
}

}  // namespace

KX_DEPRECATED_BEGIN

NetworkReachabilityRef AppleReachability::createWithAddress(const SocketAddress &address) {
  sockaddr systemAddress{};
  static_assert(sizeof systemAddress == sizeof address);
  std::memcpy(&systemAddress, address.data(), sizeof systemAddress);
  const SCNetworkReachabilityRef handle =
      SCNetworkReachabilityCreateWithAddress(kCFAllocatorDefault, &systemAddress);
  return handle == nullptr ? nullptr : new Target(handle);
}

std::optional<NetworkReachabilityFlags> AppleReachability::getFlags(NetworkReachabilityRef target) {
  if (target == nullptr) return std::nullopt;
  SCNetworkReachabilityFlags flags = 0;
  if (SCNetworkReachabilityGetFlags(Target::of(target).handle(), &flags) == 0) return std::nullopt;
  return flags;
}

bool AppleReachability::setCallback(NetworkReachabilityRef target, NetworkReachabilityCallback callback,
                                    const NetworkReachabilityContext &context) {
  return target != nullptr && Target::of(target).setCallback(callback, context);
}

bool AppleReachability::scheduleWithRunLoop(NetworkReachabilityRef target,
                                            const std::shared_ptr<RunLoop> &runLoop, RunLoopMode mode) {
  const auto appleRunLoop = std::dynamic_pointer_cast<AppleRunLoop>(runLoop);
  if (target == nullptr || appleRunLoop == nullptr) return false;
  return SCNetworkReachabilityScheduleWithRunLoop(Target::of(target).handle(), appleRunLoop->cfRunLoop(),
                                                  cfNameOf(mode)) != 0;
}

bool AppleReachability::unscheduleFromRunLoop(NetworkReachabilityRef target,
                                              const std::shared_ptr<RunLoop> &runLoop, RunLoopMode mode) {
  const auto appleRunLoop = std::dynamic_pointer_cast<AppleRunLoop>(runLoop);
  if (target == nullptr || appleRunLoop == nullptr) return false;
  return SCNetworkReachabilityUnscheduleFromRunLoop(Target::of(target).handle(), appleRunLoop->cfRunLoop(),
                                                    cfNameOf(mode)) != 0;
}

const void *systemHandleOf(NetworkReachabilityRef target) {
  return Target::of(target).handle();
}

KX_DEPRECATED_END

}  // namespace kx
