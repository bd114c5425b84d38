#pragma once

#include <mutex>
#include <utility>

#include "KXPublisher/platform/foundation/YieldPoint.h"

namespace kx {

/// A property that several threads read and write: each access is indivisible, so a reader receives one whole
/// value, the one before or the one after a write. Meant for references (`std::shared_ptr`) and small values.
///
/// The lock is held for the copy or the exchange alone; the value that a write replaces is released after it,
/// so no destructor runs under the lock.
template <class T>
class AtomicProperty {
 public:
  AtomicProperty() = default;
  explicit AtomicProperty(T value) : value_(std::move(value)) {}

  T get() const {
    yieldPoint();
    const std::lock_guard<std::mutex> lock(mutex_);
    return value_;
  }

  void set(T value) {
    yieldPoint();
    const std::lock_guard<std::mutex> lock(mutex_);
    std::swap(value_, value);
  }

 private:
  mutable std::mutex mutex_{};
  T value_{};
};

}  // namespace kx
