#pragma once

#include <atomic>

#include "KXPublisher/platform/foundation/YieldPoint.h"

namespace kx {

/// A plain number, or a truth value, that several threads read and write, and that is guarded by nothing but
/// the order in which that happens.
template <class T>
class AtomicNumber {
 public:
  explicit AtomicNumber(T value) : value_(value) {}
  AtomicNumber(const AtomicNumber &) = delete;

  // NOLINTNEXTLINE(google-explicit-constructor): it is read like the number that it is
  operator T() const {
    yieldPoint();
    return value_;
  }
  AtomicNumber &operator=(T value) {
    yieldPoint();
    value_ = value;
    return *this;
  }

 private:
  std::atomic<T> value_;
};

}  // namespace kx
