#include "KXPublisher/providers/KXScheduleInfo.h"

#include <utility>

namespace kx {

KXScheduleInfo::KXScheduleInfo(std::shared_ptr<RunLoopTimer> timer, std::shared_ptr<Object> forTarget,
                               Selector selector, double withTimeInterval) {
  setTimer(std::move(timer));
  setTarget(std::move(forTarget));
  setSelector(selector);
  setTimeInterval(withTimeInterval);
}

KXScheduleInfo::~KXScheduleInfo() {
  if (const auto timer = this->timer()) timer->invalidate();
}

}  // namespace kx
