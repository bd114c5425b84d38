#include "tools/explore/ReportModel.h"

#include <algorithm>
#include <cmath>

#include "KXPublisher/KXPublisher.hpp"

namespace kx {

using namespace constants;

void ReportModel::schedule() {
  early_.push_back(now_ + loggingFirstTimeDelay);
  repeatsFrom_ = now_;
  nextRepeating_ = now_ + loggingTimeInterval;
  repeating_ = true;
}

void ReportModel::entersBackground() {
  repeating_ = false;
  ++made_;
}

void ReportModel::entersForeground() {
  schedule();
}

void ReportModel::mainLoopRuns() {
  const auto due = std::partition(early_.begin(), early_.end(), [this](double time) { return time > now_; });
  made_ += static_cast<unsigned>(early_.end() - due);
  early_.erase(due, early_.end());
  if (!repeating_ || nextRepeating_ > now_) return;
  ++made_;
  const double periods = std::floor((now_ - repeatsFrom_) / loggingTimeInterval);
  nextRepeating_ = repeatsFrom_ + (periods + 1) * loggingTimeInterval;
}

}  // namespace kx
