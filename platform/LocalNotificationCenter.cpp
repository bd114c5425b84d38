#include "KXPublisher/platform/LocalNotificationCenter.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <new>
#include <utility>

namespace kx {

void LocalNotificationCenter::addObserverForName(const std::string &name,
                                                 const std::shared_ptr<Object> &object,
                                                 const std::shared_ptr<OperationQueue> &queue,
                                                 Handler block) {
  const auto registration = std::make_shared<Registration>(name, object);
  registration->queue = queue;
  registration->block = std::move(block);
  add(registration);
}

void LocalNotificationCenter::addObserver(const std::shared_ptr<Object> &observer, Selector selector,
                                          const std::string &name, const std::shared_ptr<Object> &object) {
  const auto registration = std::make_shared<Registration>(name, object);
  registration->identity = observer.get();
  registration->observer = observer;
  registration->selector = selector;
  add(registration);
}

void LocalNotificationCenter::add(const std::shared_ptr<const Registration> &registration) {
  change([&registration](const Registrations &before) {
    auto after = std::make_shared<Registrations>();
    after->reserve(before.size() + 1);
    *after = before;
    after->push_back(registration);
    return after;
  });
}

void LocalNotificationCenter::removeObserver(const Object &observer) {
  bool concerned = false;
  for (const auto &registration : *registrationsNow()) {
    const Object *identity = &observer;
    concerned |= registration->identity.compare_exchange_strong(identity, nullptr);
  }
  if (!concerned) return;
  try {
    change([](const Registrations &before) {
      auto after = std::make_shared<Registrations>();
      std::copy_if(before.begin(), before.end(), std::back_inserter(*after),
                   [](const auto &registration) { return !registration->isWithdrawn(); });
      return after;
    });
  } catch (const std::bad_alloc &) {
    // They stay in the list and call nothing any more.
  }
}

/// Replaces the list by what `next` makes of it.
template <class Next>
void LocalNotificationCenter::change(Next next) {
  std::shared_ptr<const Registrations> replaced;  // outlives the lock: what it holds is released without it
  const std::lock_guard<std::mutex> lock(mutex_);
  std::shared_ptr<const Registrations> after = next(*registrations_);
  replaced = std::exchange(registrations_, std::move(after));
}

std::shared_ptr<const LocalNotificationCenter::Registrations> LocalNotificationCenter::registrationsNow() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return registrations_;
}

void LocalNotificationCenter::postNotificationName(const std::string &name,
                                                   const std::shared_ptr<Object> &object) {
  const auto registrations = registrationsNow();
  std::shared_ptr<Notification> notification;
  try {
    notification = std::make_shared<Notification>(name, object);
  } catch (const std::bad_alloc &) {
    // That it has happened is what counts.
  }
  std::exception_ptr thrown;
  for (const auto &registration : *registrations) {
    if (registration->name != name) continue;
    if (registration->sender != nullptr && registration->sender != object) continue;
    try {
      deliver(*registration, notification);
    } catch (...) {
      if (thrown == nullptr) thrown = std::current_exception();
    }
  }
  if (thrown != nullptr) std::rethrow_exception(thrown);
}

void LocalNotificationCenter::deliver(const Registration &registration,
                                      const std::shared_ptr<Notification> &notification) {
  if (registration.isWithdrawn()) return;
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
