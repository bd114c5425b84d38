#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// A function that calls `work`, a function or one of its operations, on `object`, which is kept meanwhile;
/// it does nothing once the object is gone.
template <class T, class Work>
auto weakly(T &object, Work work) {
  return [weak = std::weak_ptr<T>(strong(object)), work = std::move(work)](auto &&...arguments) {
    if (const auto held = weak.lock()) {
      std::invoke(work, *held, std::forward<decltype(arguments)>(arguments)...);
    }
  };
}

}  // namespace kx
