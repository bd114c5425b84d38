#pragma once

#include <cstddef>
#include <list>
#include <mutex>
#include <utility>

#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/NotificationCenter.h"

namespace kx {

/// The notification centre of a platform that has none of its own. See `NotificationCenter` for what it
/// promises; nothing is called while its lock is held.
class KX_EXPORT LocalNotificationCenter : public NotificationCenter {
 public:
  LocalNotificationCenter(Dispatch &dispatch, std::shared_ptr<OperationQueue> mainOperationQueue)
      : dispatch_(dispatch), mainOperationQueue_(std::move(mainOperationQueue)) {}

  void addObserverForName(const std::string &name, const std::shared_ptr<Object> &object,
                          const std::shared_ptr<OperationQueue> &queue, Handler block) override;
  void addObserver(const std::shared_ptr<Object> &observer, Selector selector, const std::string &name,
                   const std::shared_ptr<Object> &object) override;
  void removeObserver(const Object &observer) override;
  void postNotificationName(const std::string &name, const std::shared_ptr<Object> &object) override;

  /// Withdraws everybody, whose blocks and what they hold are released: for a device that ends before the
  /// process does.
  void removeAllObservers() {
    std::list<Registration> withdrawn;  // outlives the lock
    const std::lock_guard<std::mutex> lock(mutex_);
    withdrawn.swap(registrations_);
  }
  /// How many registrations there are.
  std::size_t registrations() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return registrations_.size();
  }

 private:
  struct Registration {
    std::string name;
    std::shared_ptr<Object> sender;  ///< null: any
    // Either a block and the queue it runs on ...
    std::shared_ptr<OperationQueue> queue;
    Handler block;
    // ... or an object, whose address still tells it when it is being torn down, and an operation.
    const Object *identity = nullptr;
    std::weak_ptr<Object> observer;
    Selector selector;
  };

  void add(Registration registration);
  void deliver(const Registration &registration, const std::shared_ptr<Notification> &notification);

  Dispatch &dispatch_;
  const std::shared_ptr<OperationQueue> mainOperationQueue_;
  std::mutex mutex_{};
  std::list<Registration> registrations_{};
};

}  // namespace kx
