#include "platform/apple/AppleNotificationCenter.h"

#import <UIKit/UIKit.h>

#include <algorithm>
#include <functional>

#include "KXPublisher/platform/Application.h"
#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleObject.h"
#include "platform/apple/AppleText.h"

namespace {

/// The system's notifications go by its own constants, whatever texts those are. Nil for a name that is not
/// UTF-8.
NSString *systemNameOf(const std::string &name) {
  if (name == kx::UIApplicationDidEnterBackgroundNotification)
    return ::UIApplicationDidEnterBackgroundNotification;
  if (name == kx::UIApplicationWillEnterForegroundNotification)
    return ::UIApplicationWillEnterForegroundNotification;
  return kx::stringOf(name);
}

/// What the library is told of a notification that it knows as `name`.
std::shared_ptr<kx::Notification> notificationOf(NSNotification *notification, const std::string &name,
                                                 const std::shared_ptr<kx::Object> &sharedApplication) {
  id const sender = notification.object;
  const bool fromApplication = sender != nil && sender == [UIApplication sharedApplication];
  return std::make_shared<kx::Notification>(name,
                                            fromApplication ? sharedApplication : kx::objectBehind(sender));
}

/// What a notification from the system is handed to.
using Delivery = std::function<void(NSNotification *)>;

Delivery deliveryTo(kx::NotificationCenter::Handler handler, const std::string &name,
                    const std::shared_ptr<kx::Object> &sharedApplication) {
  return [handler = std::move(handler), name, sharedApplication](NSNotification *notification) {
    kx::runAtBoundary([&] { handler(notificationOf(notification, name, sharedApplication)); });
  };
}

/// Whatever is thrown here was thrown by an observer of the host's: the library's own end theirs. It is not
/// for the library to hide: it ends the process, as it does when the system posts, instead of one of the
/// boundaries that the library posts behind.
void postForTheHost(NSString *name, id sender) noexcept {
  [[NSNotificationCenter defaultCenter] postNotificationName:name object:sender];
}

}  // namespace

/// Observes for an object of the library's own.
@interface KXPublisherNotificationObserver : NSObject
- (instancetype)initWithDelivery:(Delivery)delivery;
- (void)receive:(NSNotification *)notification;
@end

@implementation KXPublisherNotificationObserver {
  Delivery _delivery;
}

- (instancetype)initWithDelivery:(Delivery)delivery {
  self = [super init];
  if (self != nil) _delivery = std::move(delivery);
  return self;
}

- (void)receive:(NSNotification *)notification {
  _delivery(notification);
}

@end

namespace kx {

id AppleNotificationCenter::senderOf(const std::shared_ptr<Object> &object) const {
  if (object != nullptr && object == sharedApplication_) return [UIApplication sharedApplication];
  return standInFor(object);
}

void AppleNotificationCenter::addObserverForName(const std::string &name,
                                                 const std::shared_ptr<Object> &object,
                                                 const std::shared_ptr<OperationQueue> &queue,
                                                 Handler block) {
  NSString *const systemName = systemNameOf(name);
  if (systemName == nil) return;  // to the system that would mean every name
  const bool onMainQueue = queue != nullptr && queue == mainOperationQueue_;
  if (queue != nullptr && !onMainQueue) {
    block = [queue, block = std::move(block)](const std::shared_ptr<Notification> &notification) {
      queue->addOperation([block, notification] { block(notification); });
    };
  }
  const Delivery delivery = deliveryTo(std::move(block), name, sharedApplication_);
  // The registration token is not kept: the observation stays as long as the process.
  [[NSNotificationCenter defaultCenter] addObserverForName:systemName
                                                    object:senderOf(object)
                                                     queue:onMainQueue ? [NSOperationQueue mainQueue] : nil
                                                usingBlock:^(NSNotification *notification) {
                                                  delivery(notification);
                                                }];
}

void AppleNotificationCenter::addObserver(const std::shared_ptr<Object> &observer, Selector selector,
                                          const std::string &name, const std::shared_ptr<Object> &object) {
  NSString *const systemName = systemNameOf(name);
  if (systemName == nil) return;
  const std::weak_ptr<Object> weakObserver = observer;
  KXPublisherNotificationObserver *const receiver = [[KXPublisherNotificationObserver alloc]
      initWithDelivery:deliveryTo(
                           [weakObserver, selector](const std::shared_ptr<Notification> &notification) {
                             if (const auto strongObserver = weakObserver.lock())
                               selector.perform(*strongObserver, notification);
                           },
                           name, sharedApplication_)];
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    observers_.emplace_back(observer.get(), receiver);
  }
  [[NSNotificationCenter defaultCenter] addObserver:receiver
                                           selector:@selector(receive:)
                                               name:systemName
                                             object:senderOf(object)];
}

void AppleNotificationCenter::removeObserver(const Object &observer) {
  std::vector<KXPublisherNotificationObserver *> withdrawn;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto first =
        std::stable_partition(observers_.begin(), observers_.end(),
                              [&observer](const auto &entry) { return entry.first != &observer; });
    for (auto entry = first; entry != observers_.end(); ++entry) withdrawn.push_back(entry->second);
    observers_.erase(first, observers_.end());
  }
  for (const auto &receiver : withdrawn) [[NSNotificationCenter defaultCenter] removeObserver:receiver];
}

void AppleNotificationCenter::postNotificationName(const std::string &name,
                                                   const std::shared_ptr<Object> &object) {
  NSString *const systemName = systemNameOf(name);
  if (systemName == nil) return;
  postForTheHost(systemName, senderOf(object));
}

}  // namespace kx
