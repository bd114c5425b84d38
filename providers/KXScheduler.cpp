#include "KXPublisher/providers/KXScheduler.h"

#include <cstdint>
#include <cstring>
#include <utility>

#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/RunLoop.h"
#include "KXPublisher/platform/foundation/StringFormat.h"
#include "KXPublisher/platform/foundation/YieldPoint.h"
#include "platform/foundation/SingleInstance.h"

namespace kx {

namespace {

/// Bit for bit: a period that differs in its last bit is another period.
bool identical(double left, double right) {
  std::uint64_t leftBits = 0;
  std::uint64_t rightBits = 0;
  std::memcpy(&leftBits, &left, sizeof left);
  std::memcpy(&rightBits, &right, sizeof right);
  return leftBits == rightBits;
}

}  // namespace

std::shared_ptr<KXScheduler> KXScheduler::sharedInstance() {
  return singleInstance([] { return std::make_shared<KXScheduler>(); });
}

std::optional<std::string> KXScheduler::keyForTarget(const std::shared_ptr<Object> &target,
                                                     Selector selector) {
  if (target == nullptr || !selector) return std::nullopt;
  return stringWithFormat("t:%@,s:%@", {target.get(), selector.name()});
}

std::shared_ptr<KXScheduleInfo> KXScheduler::scheduleInfoForTarget(const std::shared_ptr<Object> &target,
                                                                   Selector selector) const {
  const auto key = keyForTarget(target, selector);
  if (!key) return nullptr;
  yieldPoint();
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = scheduleInfoMap_.find(*key);
  return found == scheduleInfoMap_.end() ? nullptr : found->second;
}

void KXScheduler::setScheduleInfo(std::shared_ptr<KXScheduleInfo> scheduleInfo,
                                  const std::shared_ptr<Object> &forTarget, Selector selector) {
  if (const auto key = keyForTarget(forTarget, selector)) exchangeScheduleInfo(*key, std::move(scheduleInfo));
}

std::map<std::string, std::shared_ptr<KXScheduleInfo>> KXScheduler::scheduleInfoMap() const {
  yieldPoint();
  const std::lock_guard<std::mutex> lock(mutex_);
  return scheduleInfoMap_;
}

void KXScheduler::setScheduleInfoMap(std::map<std::string, std::shared_ptr<KXScheduleInfo>> scheduleInfoMap) {
  yieldPoint();
  const std::lock_guard<std::mutex> lock(mutex_);
  scheduleInfoMap_.swap(scheduleInfoMap);
}

void KXScheduler::scheduleTimerForTarget(const std::shared_ptr<Object> &target, Selector selector,
                                         double withTimeInverval) {
  if (!keyForTarget(target, selector)) return;
  if (const auto scheduleInfo = scheduleInfoForTarget(target, selector)) {
    const auto timer = scheduleInfo->timer();
    if (timer != nullptr) {
      if (identical(scheduleInfo->timeInterval(), withTimeInverval) && timer->isValid()) return;
      timer->invalidate();
    }
  }
  RunLoopService &runLoops = Platform::current().runLoops();
  const auto timer = runLoops.timerWithTimeInterval(withTimeInverval, target, selector, /*repeats=*/true);
  try {
    runLoops.mainRunLoop()->addTimer(timer, RunLoopMode::commonModes);
    setScheduleInfo(std::make_shared<KXScheduleInfo>(timer, target, selector, withTimeInverval), target,
                    selector);
  } catch (...) {
    timer->invalidate();  // nobody could stop one that has no record
    throw;
  }
}

void KXScheduler::setTimeInterval(double timeInterval, const std::shared_ptr<Object> &forTarget,
                                  Selector selector) {
  scheduleTimerForTarget(forTarget, selector, timeInterval);
}

void KXScheduler::pauseTimerForTarget(const std::shared_ptr<Object> &target, Selector selector) {
  const auto scheduleInfo = scheduleInfoForTarget(target, selector);
  if (scheduleInfo == nullptr) return;
  if (const auto timer = scheduleInfo->timer()) timer->invalidate();
}

void KXScheduler::resumeTimerForTarget(const std::shared_ptr<Object> &target, Selector selector) {
  const auto scheduleInfo = scheduleInfoForTarget(target, selector);
  if (scheduleInfo == nullptr) return;
  scheduleTimerForTarget(scheduleInfo->target(), scheduleInfo->selector(), scheduleInfo->timeInterval());
}

void KXScheduler::removeTimerForTarget(const std::shared_ptr<Object> &target, Selector selector) {
  pauseTimerForTarget(target, selector);
  if (const auto key = keyForTarget(target, selector)) exchangeScheduleInfo(*key, nullptr);
}

/// Stores a record, or with a null pointer removes the key, and returns the record that was there: its timer
/// and target are released by the caller, outside the lock.
std::shared_ptr<KXScheduleInfo> KXScheduler::exchangeScheduleInfo(
    const std::string &key, std::shared_ptr<KXScheduleInfo> scheduleInfo) {
  yieldPoint();
  const std::lock_guard<std::mutex> lock(mutex_);
  auto &record = scheduleInfoMap_[key];
  record.swap(scheduleInfo);
  if (record == nullptr) scheduleInfoMap_.erase(key);
  return scheduleInfo;
}

}  // namespace kx
