#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

#include "KXPublisher/platform/DispatchQueue.h"

namespace kx {

/// Dispatch queues of which only the default-priority global one may be used. It has one worker thread.
class TestDispatch : public Dispatch {
 public:
  ~TestDispatch() override { worker_.end(); }

  DispatchQueue &globalQueue(DispatchQueuePriority priority) override {
    if (priority != DispatchQueuePriority::standard) throw std::logic_error("not the default priority");
    return worker_;
  }
  DispatchQueue &mainQueue() override { throw std::logic_error("not the main queue"); }
  bool isMainThread() override { return std::this_thread::get_id() == mainThread_; }

  std::thread::id workerThread() const { return worker_.thread(); }
  /// From now on there is no memory for what is handed to the worker.
  void exhaustMemory() { worker_.hasNoMemory = true; }

 private:
  class Worker : public DispatchQueue {
   public:
    void async(WorkItem task) override {
      if (hasNoMemory) throw std::bad_alloc();
      {
        const std::lock_guard<std::mutex> lock(mutex_);
        tasks_.push_back(std::move(task));
      }
      changed_.notify_one();
    }
    void sync(WorkItem) override { throw std::logic_error("nobody waits for an answer"); }

    std::atomic<bool> hasNoMemory{false};

    std::thread::id thread() const { return thread_.get_id(); }
    /// Runs what is there and ends the thread.
    void end() {
      {
        const std::lock_guard<std::mutex> lock(mutex_);
        ending_ = true;
      }
      changed_.notify_one();
      thread_.join();
    }

   private:
    void run() {
      std::unique_lock<std::mutex> lock(mutex_);
      while (true) {
        changed_.wait(lock, [this] { return ending_ || !tasks_.empty(); });
        if (tasks_.empty()) return;
        WorkItem task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        std::exchange(task, nullptr)();
        lock.lock();
      }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<WorkItem> tasks_;
    bool ending_ = false;
    std::thread thread_{[this] { run(); }};
  };

  const std::thread::id mainThread_ = std::this_thread::get_id();
  Worker worker_;
};

}  // namespace kx
