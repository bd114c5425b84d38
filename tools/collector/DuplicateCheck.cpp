#include "tools/collector/DuplicateCheck.h"

#include <utility>

namespace kx::collector {

DuplicateCheck::DuplicateCheck(Read read) : read_(std::move(read)), worker_([this] { work(); }) {}

DuplicateCheck::~DuplicateCheck() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    isEnding_ = true;
  }
  isWoken_.notify_all();
  worker_.join();
  for (const Doubt &doubt : doubts_) doubt.checked(false);
}

void DuplicateCheck::check(std::uint64_t sequence, std::string id, Checked checked) {
  if (sequence == 0 || id.empty()) return checked(false);
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    doubts_.push_back({sequence, std::move(id), std::move(checked)});
  }
  isWoken_.notify_all();
}

void DuplicateCheck::work() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (true) {
    isWoken_.wait(lock, [this] { return isEnding_ || !doubts_.empty(); });
    if (isEnding_) return;
    const Doubt doubt = std::move(doubts_.front());
    doubts_.pop_front();
    lock.unlock();
    const auto kept = read_(doubt.sequence);
    lock.lock();
    // Where nobody answers, the others would wait in vain, too, one after the other.
    const auto others = kept ? std::deque<Doubt>() : std::exchange(doubts_, {});
    lock.unlock();
    doubt.checked(kept == doubt.id);
    for (const Doubt &other : others) other.checked(false);
    lock.lock();
  }
}

}  // namespace kx::collector
