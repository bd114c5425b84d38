#pragma once

#import <Foundation/Foundation.h>

#include <mutex>
#include <utility>
#include <vector>

#include "KXPublisher/platform/NotificationCenter.h"

@class KXPublisherNotificationObserver;

namespace kx {

/// The process's default NSNotificationCenter: the library sees what the system posts there, and the host
/// what the library posts. To the host, a sender from the library is an object without operations of its own.
class AppleNotificationCenter : public NotificationCenter {
 public:
  /// `sharedApplication` and `mainOperationQueue` stand for the system's own.
  AppleNotificationCenter(std::shared_ptr<Object> sharedApplication,
                          std::shared_ptr<OperationQueue> mainOperationQueue)
      : sharedApplication_(std::move(sharedApplication)),
        mainOperationQueue_(std::move(mainOperationQueue)) {}

  void addObserverForName(const std::string &name, const std::shared_ptr<Object> &object,
                          const std::shared_ptr<OperationQueue> &queue, Handler block) override;
  void addObserver(const std::shared_ptr<Object> &observer, Selector selector, const std::string &name,
                   const std::shared_ptr<Object> &object) override;
  void removeObserver(const Object &observer) override;
  void postNotificationName(const std::string &name, const std::shared_ptr<Object> &object) override;

 private:
  id _Nullable senderOf(const std::shared_ptr<Object> &object) const;

  const std::shared_ptr<Object> sharedApplication_;
  const std::shared_ptr<OperationQueue> mainOperationQueue_;
  std::mutex mutex_;
  /// What `addObserver` registered: NSNotificationCenter does not keep its observers.
  std::vector<std::pair<const Object *, KXPublisherNotificationObserver *>> observers_;
};

}  // namespace kx
