#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "KXPublisher/platform/OperationQueue.h"
#include "KXPublisher/platform/foundation/Object.h"
#include "KXPublisher/platform/foundation/Selector.h"

namespace kx {

/// Something that happened (NSNotification): its name, and the object that it happened to.
class KX_EXPORT Notification : public Object {
 public:
  Notification(std::string name, std::shared_ptr<Object> object)
      : name_(std::move(name)), object_(std::move(object)) {}

  const std::string &name() const { return name_; }
  /// The sender; may be a null pointer.
  const std::shared_ptr<Object> &object() const { return object_; }

 private:
  std::string name_;
  std::shared_ptr<Object> object_;
};

/// Where notifications are announced and observed (NSNotificationCenter). May be used from any thread.
/// Observers are told in the order of their registration.
class KX_EXPORT NotificationCenter {
 public:
  /// Receives the notification; a null pointer where there is no memory for one.
  using Handler = std::function<void(const std::shared_ptr<Notification> &)>;

  virtual ~NotificationCenter() = default;

  /// `addObserverForName:object:queue:usingBlock:`: has `block` called on `queue` for every notification of
  /// that name from that sender (from any sender, when `object` is null). On the main operation queue the
  /// block is called before the posting call returns when that is made on the main thread, and soon after
  /// otherwise. There is no registration token: the block and what it holds stay as long as the process.
  virtual void addObserverForName(const std::string &name, const std::shared_ptr<Object> &object,
                                  const std::shared_ptr<OperationQueue> &queue, Handler block) = 0;

  /// `addObserver:selector:name:object:`: has the operation called on `observer`, on the posting thread and
  /// before the posting call returns. The observer is not kept alive.
  virtual void addObserver(const std::shared_ptr<Object> &observer, Selector selector,
                           const std::string &name, const std::shared_ptr<Object> &object) = 0;

  /// `removeObserver:`: withdraws what `addObserver` registered for that object. May be called while the
  /// object is being torn down.
  virtual void removeObserver(const Object &observer) = 0;

  /// `postNotificationName:object:`: tells the observers.
  virtual void postNotificationName(const std::string &name, const std::shared_ptr<Object> &object) = 0;
};

}  // namespace kx
