#include <string>
#include <utility>
#include <vector>

#include "KXPublisher/platform/foundation/YieldPoint.h"
#include "KXPublisher/platform/simulated/SimulatedScheduler.h"
#include "platform/foundation/SingleInstance.h"

// What the library's yield points and single instances do where it is compiled for the simulated device.

#ifdef KX_SIMULATED

namespace kx {

namespace {

/// In the order of filling.
std::vector<SingleInstanceSlot *> &filledSlots() {
  static auto &slots = *new std::vector<SingleInstanceSlot *>;
  return slots;
}

}  // namespace

void yieldPoint() {
  if (SimulatedScheduler *const scheduler = SimulatedScheduler::current()) scheduler->yield();
}

SingleInstanceSlot::SingleInstanceSlot(std::function<std::weak_ptr<Object>()> release)
    : release_(std::move(release)) {}

void SingleInstanceSlot::fill(const std::function<void()> &make) {
  if (beingFilled_) {
    if (SimulatedScheduler *const scheduler = SimulatedScheduler::current()) {
      scheduler->waitUntil([this] { return !beingFilled_; });
    }
  }
  if (filled_) return;
  struct Filling {
    bool &flag;
    explicit Filling(bool &beingFilled) : flag(beingFilled) { flag = true; }
    ~Filling() { flag = false; }
  } const filling(beingFilled_);
  filledSlots().reserve(filledSlots().size() + 1);  // first: what is made has to be listed
  make();
  filled_ = true;
  filledSlots().push_back(this);
}

std::string SingleInstanceSlot::releaseAll() {
  auto &slots = filledSlots();
  std::vector<std::weak_ptr<Object>> released;
  while (!slots.empty()) {
    SingleInstanceSlot &slot = *slots.back();
    slots.pop_back();
    slot.filled_ = false;
    released.push_back(slot.release_());
  }
  std::string held;
  for (const auto &weak : released) {
    if (const auto instance = weak.lock()) held += " " + instance->description();
  }
  return held;
}

}  // namespace kx

#endif
