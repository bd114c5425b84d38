#include "platform/linux/threads/LinuxWorkerPool.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "platform/linux/console/CallbackBoundary.h"

namespace kx {

namespace {

constexpr std::size_t stackSize =
    std::size_t{512} * 1024;  // bytes; name resolution, with the host's modules, takes the most

thread_local const void *currentLane = nullptr;

/// Starts a thread that nobody waits for; false when there can be no more.
bool startThread(void *(*main)(void *), void *argument) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, stackSize);
  // Inherited by the thread, so that it never has another mask. Its own faults still reach the host's crash
  // reporter: blocked, they would end the process without it.
  sigset_t blocked;
  sigfillset(&blocked);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) sigdelset(&blocked, fault);
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  pthread_t thread{};
  const bool started = pthread_create(&thread, &attributes, main, argument) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  return started;
}

}  // namespace

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
    if (startThread(&launcherMain, this)) return;
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

void *LinuxWorkerPool::launcherMain(void *pool) {
  pthread_setname_np(pthread_self(), "kx-launcher");
  static_cast<LinuxWorkerPool *>(pool)->launchWorkers();
  return nullptr;
}

void LinuxWorkerPool::launchWorkers() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (true) {
    const auto lane = std::find_if(lanes_.begin(), lanes_.end(), needsThread);
    if (lane != lanes_.end()) {
      lane->starting = true;
      ++lane->threads;
      ++workers_;
      lock.unlock();
      const bool started = startThread(&workerMain, &*lane);
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
