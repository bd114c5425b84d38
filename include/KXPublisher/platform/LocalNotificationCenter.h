#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/NotificationCenter.h"

namespace kx {

/// The notification centre of a platform that has none of its own. See `NotificationCenter` for what it
/// promises; nothing is called or released while its lock is held. What an observer throws keeps no other
/// from being told: the first exception goes on to the poster when all have been. Nor does a lack of memory:
/// where there is none for the notification, a null pointer stands for it.
class KX_EXPORT LocalNotificationCenter : public NotificationCenter {
 private:
  struct Registration {
    Registration(std::string ofName, std::shared_ptr<Object> ofSender)
        : name(std::move(ofName)), sender(std::move(ofSender)) {}

    bool isWithdrawn() const { return queue == nullptr && identity == nullptr; }

    const std::string name;
    const std::shared_ptr<Object> sender;  ///< null: any
    // Either a block and the queue it runs on ...
    std::shared_ptr<OperationQueue> queue{};
    Handler block{};
    // ... or an object, whose address still tells it when it is being torn down (null when it is withdrawn),
    // and an operation.
    mutable std::atomic<const Object *> identity{nullptr};
    std::weak_ptr<Object> observer{};
    Selector selector{};
  };

  using Registrations = std::vector<std::shared_ptr<const Registration>>;

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
    auto none =
        std::make_shared<const Registrations>();  // in the end what was there, which outlives the lock
    const std::lock_guard<std::mutex> lock(mutex_);
    registrations_.swap(none);
  }
  /// How many registrations there are.
  std::size_t registrations() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return registrations_->size();
  }

 private:
  KX_HIDDEN std::shared_ptr<const Registrations> registrationsNow();
  KX_HIDDEN void add(const std::shared_ptr<const Registration> &registration);
  template <class Next>
  void change(Next next);
  KX_HIDDEN void deliver(const Registration &registration, const std::shared_ptr<Notification> &notification);

  Dispatch &dispatch_;
  const std::shared_ptr<OperationQueue> mainOperationQueue_;
  std::mutex mutex_{};
  /// The list is never changed, only replaced: a post goes through the one that it finds, without a copy.
  std::shared_ptr<const Registrations> registrations_ = std::make_shared<const Registrations>();
};

}  // namespace kx
