#pragma once

#ifdef KX_SIMULATED
#include <functional>
#include <memory>
#include <string>
#include <type_traits>

#include "KXPublisher/platform/foundation/Object.h"
#include "KXPublisher/platform/foundation/YieldPoint.h"
#endif

namespace kx {

#ifndef KX_SIMULATED

/// What `make` makes at the first call, under a once-only guard; each place in the code that calls this has
/// one of its own. It is never destroyed, not even at exit, for worker threads may still run then.
///
/// On the simulated device alone it can be taken away, so that a process plays many devices.
template <class Make>
auto &singleInstance(Make make) {
  static auto &instance = *new auto(make());
  return instance;
}

#else

/// Where a single instance of a simulated device is kept. Slots themselves live as long as the process.
class SingleInstanceSlot {
 public:
  /// Empties all slots, the one that was filled last first. Tells which
  /// instances somebody still holds, if any.
  static std::string releaseAll();

 protected:
  explicit SingleInstanceSlot(std::function<std::weak_ptr<Object>()> release);

  /// Has `make` called unless the instance is there; one task makes it, and others wait for that.
  void fill(const std::function<void()> &make);

 private:
  const std::function<std::weak_ptr<Object>()> release_;
  bool filled_ = false;
  bool beingFilled_ = false;
};

template <class T>
class SingleInstance : public SingleInstanceSlot {
 public:
  SingleInstance() : SingleInstanceSlot([this] { return release(); }) {}

  template <class Make>
  T &get(Make &make) {
    fill([this, &make] { value_.reset(new T(make())); });
    return *value_;
  }

 private:
  /// What tells whether the instance, if it is a shared one, is still there.
  std::weak_ptr<Object> release() {
    std::weak_ptr<Object> instance;
    if constexpr (std::is_convertible_v<T, std::shared_ptr<Object> >)
      instance = std::shared_ptr<Object>(*value_);
    value_.reset();
    return instance;
  }

  std::unique_ptr<T> value_;
};

template <class Make>
auto &singleInstance(Make make) {
  static auto &slot = *new SingleInstance<decltype(make())>;
  return slot.get(make);
}

#endif

}  // namespace kx
