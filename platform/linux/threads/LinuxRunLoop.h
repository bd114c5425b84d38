#pragma once

#include <glib.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <thread>

#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/RunLoop.h"

namespace kx {

class LinuxTimer;

/// A GLib main context, seen as its thread's loop of events. The library takes part in it with one source for
/// everything, tasks and timers: while nothing is due, that source costs the loop a look at two containers an
/// iteration, and no wake-up. What is handed over in one go wakes it once.
///
/// Its tasks and timers run one after the other, also when one of them runs a loop of its own. GLib knows no
/// modes: a loop that the host runs inside another one, for a dialogue, serves everything.
class LinuxRunLoop : public RunLoop {
 public:
  /// The loop of that context, always the same object. Made at the first call; it and the context then stay
  /// as long as the process.
  static std::shared_ptr<LinuxRunLoop> of(GMainContext *context);

  /// The context, for an adapter that adds sources of its own to the loop. Never null.
  GMainContext *context() const { return context_; }

  /// Whether the calling thread runs this loop: whether it owns the context. No thread does before the loop
  /// runs.
  bool runsOnCurrentThread() const;

  /// Whether another thread than the calling one runs this loop, or ran it last.
  bool runsOnAnotherThread() const;

  /// `CFRunLoopPerformBlock`: has `block` run on the loop's thread, after those that were handed over
  /// earlier. May be called from any thread.
  void perform(WorkItem block);

  void addTimer(const std::shared_ptr<RunLoopTimer> &timer, RunLoopMode mode) override;

 private:
  friend class LinuxTimer;
  struct Source;
  /// By the time at which they are due, in microseconds of the monotonic clock.
  using Timers = std::multimap<std::int64_t, std::shared_ptr<LinuxTimer>>;

  explicit LinuxRunLoop(GMainContext *context);

  static gboolean prepare(GSource *source, gint *timeout);
  static gboolean check(GSource *source);
  static gboolean dispatch(GSource *source, GSourceFunc, gpointer);

  /// Whether the loop has to be woken for what is new: whether it may be waiting, and nobody else has woken
  /// it since it has begun to. With the lock held; who is told so wakes it, without the lock.
  bool startWaking();
  void wake() { g_main_context_wakeup(context_); }
  /// Milliseconds until something is due, rounded up; 0 when something is, -1 when nothing ever will be.
  /// `mayWait`: whether the loop goes on to wait, unless there is something to do.
  int untilNextDue(bool mayWait);
  void runTasks();
  /// Fires one timer that was due at `now`; false when there is none.
  bool fireTimer(std::int64_t now);

  GMainContext *const context_;
  /// From when the loop looks for what is due until it has waited for it, or is woken. At first too, since it
  /// may be waiting already when the library comes to it.
  bool mayWait_ = true;
  std::atomic<std::thread::id> thread_{};  ///< that has run the loop last; none before it first runs
  std::deque<WorkItem> tasks_;
  std::deque<WorkItem> runningTasks_;  ///< not made where they are run: that would need memory
  Timers timers_;
};

/// The run loops of GLib's main contexts. The main run loop is that of the default main context, and so the
/// main thread is the one that runs it. Timers fire by the monotonic clock, which neither a change of the
/// wall clock moves nor a suspended device.
class LinuxRunLoopService : public RunLoopService {
 public:
  LinuxRunLoopService();

  std::shared_ptr<RunLoop> mainRunLoop() override { return main_; }
  /// The loop of the context that is the calling thread's default by GLib's rule, as for all of GIO's
  /// asynchronous operations: a thread that has pushed no context of its own has the main run loop.
  std::shared_ptr<RunLoop> currentRunLoop() override;
  std::shared_ptr<RunLoopTimer> timerWithTimeInterval(double timeInterval,
                                                      const std::shared_ptr<Object> &target,
                                                      Selector selector, bool repeats) override;

  /// The main run loop as what it is here.
  const std::shared_ptr<LinuxRunLoop> &linuxMainRunLoop() const { return main_; }

 private:
  const std::shared_ptr<LinuxRunLoop> main_;
};

}  // namespace kx
