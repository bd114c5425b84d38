#include "platform/linux/threads/LinuxWorkerPool.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/linux/console/CallbackBoundary.h"
#include "platform/linux/threads/ForkedChild.h"
#include "platform/linux/threads/LinuxThread.h"

namespace kx {

namespace {

constexpr std::size_t stackSize =
    std::size_t{512} * 1024;  // bytes; name resolution, with the host's modules, takes the most

/// The lane of the calling thread; null when it is no worker.
thread_local const void *currentLane = nullptr;

}  // namespace

LinuxWorkerPool &LinuxWorkerPool::shared() {
  static auto &pool = *new LinuxWorkerPool;
  return pool;
}

LinuxWorkerPool::LinuxWorkerPool()
    : lanes_{{{this, "kx-high", 0, {}},
              {this, "kx-standard", 0, {}},
              {this, "kx-low", 5, {}},
              {this, "kx-background", 10, {}}}} {}

bool LinuxWorkerPool::needsThread(const Lane &lane) {
  // One at a time: most tasks are so short that the first thread has done them before the next one starts.
  return !lane.waiting.empty() && !lane.starting && !lane.refused && lane.threads < maximumThreads;
}

void LinuxWorkerPool::submit(DispatchQueuePriority priority, WorkItem task) {
  if (ForkedChild::isThisProcess()) return;
  bool needsThread = false;
  bool needsLauncher = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    Lane &lane = lanes_[indexOf(priority)];
    lane.waiting.push_back(std::move(task));
    lane.refused = false;
    needsThread = LinuxWorkerPool::needsThread(lane);
    needsLauncher = needsThread && !std::exchange(launcherRuns_, true);
  }
  if (needsLauncher) {
    if (startDetachedThread(stackSize, &launcherMain, this) == 0) return;
    const std::lock_guard<std::mutex> lock(mutex_);
    launcherRuns_ = false;
  } else if (needsThread) {
    changed_.notify_one();
  }
}

bool LinuxWorkerPool::isWorker(DispatchQueuePriority priority) {
  if (currentLane == nullptr) return false;
  const Lane &lane = *static_cast<const Lane *>(currentLane);
  return &lane == &lane.pool->lanes_[indexOf(priority)];
}

int LinuxWorkerPool::startThread(std::size_t size, void *(*main)(void *), void *argument) {
  const auto *const lane = static_cast<const Lane *>(currentLane);
  if (lane == nullptr || lane->niceIncrement == 0) return startDetachedThread(size, main, argument);
  // The launcher is there, since this worker is.
  LinuxWorkerPool &pool = *lane->pool;
  Order order{size, main, argument, false, 0, nullptr};
  std::unique_lock<std::mutex> lock(pool.mutex_);
  order.next = std::exchange(pool.orders_, &order);
  lock.unlock();
  pool.changed_.notify_one();
  lock.lock();
  pool.ordersServed_.wait(lock, [&order] { return order.served; });
  return order.error;
}

void LinuxWorkerPool::serveOrders(std::unique_lock<std::mutex> &lock) {
  while (orders_ != nullptr) {
    Order &order = *std::exchange(orders_, orders_->next);
    lock.unlock();
    const int error = startDetachedThread(order.stackSize, order.main, order.argument);
    lock.lock();
    order.error = error;
    order.served = true;  // once the lock is free it may be gone
    lock.unlock();
    ordersServed_.notify_all();
    lock.lock();
  }
}

void *LinuxWorkerPool::launcherMain(void *pool) {
  pthread_setname_np(pthread_self(), "kx-launcher");
  static_cast<LinuxWorkerPool *>(pool)->launchWorkers();
  return nullptr;
}

void LinuxWorkerPool::launchWorkers() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (true) {
    serveOrders(lock);
    const auto lane = std::find_if(lanes_.begin(), lanes_.end(), needsThread);
    if (lane != lanes_.end()) {
      lane->starting = true;
      ++lane->threads;
      ++workers_;
      lock.unlock();
      const bool started = startDetachedThread(stackSize, &workerMain, &*lane) == 0;
      lock.lock();
      if (started) continue;
      lane->starting = false;
      lane->refused = true;
      --lane->threads;
      --workers_;
    } else if (workers_ > 0) {
      changed_.wait(lock);
    } else {
      launcherRuns_ = false;
      return;
    }
  }
}

void *LinuxWorkerPool::workerMain(void *lane) {
  Lane &own = *static_cast<Lane *>(lane);
  currentLane = &own;
  pthread_setname_np(pthread_self(), own.threadName);
  if (own.niceIncrement != 0) {
    [[maybe_unused]] const int ofThisThreadAlone = nice(own.niceIncrement);  // on Linux
  }
  own.pool->work(own);
  return nullptr;
}

void LinuxWorkerPool::work(Lane &lane) {
  std::unique_lock<std::mutex> lock(mutex_);
  lane.starting = false;
  while (!lane.waiting.empty()) {
    WorkItem task = std::move(lane.waiting.front());
    lane.waiting.pop_front();
    const bool another = needsThread(lane);
    lock.unlock();
    if (another) changed_.notify_one();
    runAtBoundary([&task] { std::exchange(task, nullptr)(); });
    lock.lock();
  }
  --lane.threads;
  const bool last = --workers_ == 0;
  lock.unlock();
  if (last) changed_.notify_one();
}

}  // namespace kx
