// SystemConfiguration.

#import <Foundation/Foundation.h>
#import <SystemConfiguration/SystemConfiguration.h>

#include <mutex>
#include <set>
#include <utility>

#include "tests/platform/apple/harness/CoreFoundationObject.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

using kx::standin::note;
using kx::standin::reachability;

struct __SCNetworkReachability : CoreFoundationObject {
  SCNetworkReachabilityCallBack callback = nullptr;
  SCNetworkReachabilityContext context{};
  std::set<std::pair<CFRunLoopRef, CFStringRef>> schedules;
};

namespace {

struct Handles {
  std::mutex mutex;
  std::set<__SCNetworkReachability *> alive;
  std::vector<unsigned char> address;
};

Handles &handles() {
  static auto *const handles = new Handles;
  return *handles;
}

__SCNetworkReachability *changeable(SCNetworkReachabilityRef handle) {
  return const_cast<__SCNetworkReachability *>(handle);
}

void destroy(CoreFoundationObject *object) {
  auto *const handle = static_cast<__SCNetworkReachability *>(object);
  {
    const std::lock_guard<std::mutex> lock(handles().mutex);
    handles().alive.erase(handle);
  }
  if (handle->context.release != nullptr) handle->context.release(handle->context.info);
  delete handle;
}

}  // namespace

/// One call of a handle's callback, on the thread of a run loop.
@interface KXReachabilityChange : NSObject {
 @public
  __SCNetworkReachability *handle;
  SCNetworkReachabilityFlags flags;
}
- (void)report;
@end

@implementation KXReachabilityChange

- (void)report {
  SCNetworkReachabilityCallBack callback = nullptr;
  void *info = nullptr;
  {
    const std::lock_guard<std::mutex> lock(handles().mutex);
    if (handles().alive.count(handle) == 0) return;
    callback = handle->callback;
    info = handle->context.info;
  }
  if (callback != nullptr) kx::standin::callOut([&] { callback(handle, flags, info); });
}

@end

SCNetworkReachabilityRef SCNetworkReachabilityCreateWithAddress(CFAllocatorRef,
                                                                const struct sockaddr *address) {
  note(__func__);
  if (!reachability().makesHandles) return nullptr;
  auto *const handle = new __SCNetworkReachability;
  handle->destroy = &destroy;
  const std::lock_guard<std::mutex> lock(handles().mutex);
  handles().alive.insert(handle);
  const auto *const bytes = reinterpret_cast<const unsigned char *>(address);
  handles().address.assign(bytes, bytes + 16);
  return handle;
}

Boolean SCNetworkReachabilityGetFlags(SCNetworkReachabilityRef, SCNetworkReachabilityFlags *flags) {
  note(__func__);
  *flags = reachability().flags;
  return reachability().canBeRead;
}

Boolean SCNetworkReachabilitySetCallback(SCNetworkReachabilityRef target,
                                         SCNetworkReachabilityCallBack callout,
                                         SCNetworkReachabilityContext *context) {
  note(__func__);
  SCNetworkReachabilityContext next{};
  if (context != nullptr) next = *context;
  if (next.version != 0) return false;
  if (next.retain != nullptr) next.info = const_cast<void *>(next.retain(next.info));
  __SCNetworkReachability *const handle = changeable(target);
  {
    const std::lock_guard<std::mutex> lock(handles().mutex);
    handle->callback = callout;
    std::swap(handle->context, next);
  }
  if (next.release != nullptr) next.release(next.info);
  return true;
}

Boolean SCNetworkReachabilityScheduleWithRunLoop(SCNetworkReachabilityRef target, CFRunLoopRef runLoop,
                                                 CFStringRef runLoopMode) {
  note(__func__);
  const std::lock_guard<std::mutex> lock(handles().mutex);
  changeable(target)->schedules.emplace(runLoop, runLoopMode);
  return true;
}

Boolean SCNetworkReachabilityUnscheduleFromRunLoop(SCNetworkReachabilityRef target, CFRunLoopRef runLoop,
                                                   CFStringRef runLoopMode) {
  note(__func__);
  const std::lock_guard<std::mutex> lock(handles().mutex);
  return changeable(target)->schedules.erase({runLoop, runLoopMode}) != 0;
}

namespace kx::standin {

namespace {

template <class Predicate>
int countSchedules(Predicate predicate) {
  const std::lock_guard<std::mutex> lock(handles().mutex);
  int count = 0;
  for (const auto *handle : handles().alive) {
    for (const auto &schedule : handle->schedules) count += predicate(schedule.first->thread) ? 1 : 0;
  }
  return count;
}

}  // namespace

Reachability &reachability() {
  static auto *const reachability = new Reachability;
  return *reachability;
}

void changeReachability(SCNetworkReachabilityFlags flags) {
  reachability().flags = flags;
  const std::lock_guard<std::mutex> lock(handles().mutex);
  for (auto *handle : handles().alive) {
    for (const auto &schedule : handle->schedules) {
      NSThread *const thread = schedule.first->thread;
      if (thread.isFinished) continue;
      KXReachabilityChange *const change = [KXReachabilityChange new];
      change->handle = handle;
      change->flags = flags;
      [change performSelector:@selector(report)
                     onThread:thread
                   withObject:nil
                waitUntilDone:NO
                        modes:@[ (__bridge NSString *)schedule.second ]];
    }
  }
}

int scheduledRunLoops() {
  return countSchedules([](NSThread *) { return true; });
}

int scheduledMainRunLoops() {
  return countSchedules([](NSThread *thread) { return thread == [NSThread mainThread]; });
}

std::vector<unsigned char> reachabilityAddress() {
  const std::lock_guard<std::mutex> lock(handles().mutex);
  return handles().address;
}

}  // namespace kx::standin
