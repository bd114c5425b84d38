#include "KXPublisher/platform/LocalNotificationCenter.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace kx {

void LocalNotificationCenter::addObserverForName(const std::string &name,
                                                 const std::shared_ptr<Object> &object,
                                                 const std::shared_ptr<OperationQueue> &queue,
                                                 Handler block) {
  add({name, object, queue, std::move(block), nullptr, {}, {}});
}

void LocalNotificationCenter::addObserver(const std::shared_ptr<Object> &observer, Selector selector,
                                          const std::string &name, const std::shared_ptr<Object> &object) {
  add({name, object, nullptr, nullptr, observer.get(), observer, selector});
}

void LocalNotificationCenter::add(Registration registration) {
  const std::lock_guard<std::mutex> lock(mutex_);
  registrations_.push_back(std::move(registration));
}

void LocalNotificationCenter::removeObserver(const Object &observer) {
  std::list<Registration> withdrawn;  // outlives the lock: what they hold is released without it
  const std::lock_guard<std::mutex> lock(mutex_);
  for (auto candidate = registrations_.begin(); candidate != registrations_.end();) {
    const auto next = std::next(candidate);
    if (candidate->identity == &observer) withdrawn.splice(withdrawn.end(), registrations_, candidate);
    candidate = next;
  }
}

void LocalNotificationCenter::postNotificationName(const std::string &name,
                                                   const std::shared_ptr<Object> &object) {
  std::vector<Registration> concerned;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::copy_if(registrations_.begin(), registrations_.end(), std::back_inserter(concerned),
                 [&name, &object](const Registration &candidate) {
                   return candidate.name == name &&
                          (candidate.sender == nullptr || candidate.sender == object);
                 });
  }
  const auto notification = std::make_shared<Notification>(name, object);
  for (const Registration &registration : concerned) deliver(registration, notification);
}

void LocalNotificationCenter::deliver(const Registration &registration,
                                      const std::shared_ptr<Notification> &notification) {
  if (registration.queue == nullptr) {
    if (const auto observer = registration.observer.lock())
      registration.selector.perform(*observer, notification);
  } else if (registration.queue == mainOperationQueue_ && dispatch_.isMainThread()) {
    registration.block(notification);
  } else {
    registration.queue->addOperation([block = registration.block, notification] { block(notification); });
  }
}

}  // namespace kx
