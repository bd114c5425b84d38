#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "KXPublisher/platform/LocalNotificationCenter.h"

namespace kx {

/// A notification center that takes the first observer, not the second, and all later ones, as when there is
/// no memory for a moment.
class FailingNotificationCenter : public LocalNotificationCenter {
 public:
  using LocalNotificationCenter::LocalNotificationCenter;

  void addObserverForName(const std::string &name, const std::shared_ptr<Object> &object,
                          const std::shared_ptr<OperationQueue> &queue, Handler block) override {
    if (++asked_ == 2) throw std::runtime_error("no memory");
    LocalNotificationCenter::addObserverForName(name, object, queue, std::move(block));
  }

 private:
  int asked_ = 0;
};

}  // namespace kx
