#pragma once

#include <mutex>
#include <vector>

namespace kx::standin {

/// The instances of a class that are alive.
template <class Instance>
class LiveObjects {
 public:
  void add(Instance *instance) {
    const std::lock_guard<std::mutex> lock(mutex_);
    instances_.push_back(instance);
  }

  /// In the order in which they were made.
  std::vector<Instance *> all() {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Instance *> alive;
    for (const auto &reference : instances_) {
      if (id const instance = reference) alive.push_back(static_cast<Instance *>(instance));
    }
    return alive;
  }

 private:
  std::mutex mutex_;
  std::vector<__weak id>
      instances_;  // "__weak Instance *" would be strong: the compiler drops it from such types
};

}  // namespace kx::standin
