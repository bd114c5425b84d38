#include "platform/linux/threads/LinuxRunLoop.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <mutex>
#include <new>
#include <utility>

#include "platform/linux/console/CallbackBoundary.h"
#include "platform/linux/threads/ForkedChild.h"

namespace kx {

namespace {

constexpr double intervalOfNone = 0.0001;  // seconds; for a time interval that is not positive
constexpr double microsecondsInSecond = 1e6;
constexpr double shortestPeriod = 1;  // microseconds, the clock's resolution
constexpr double latestDue = 1e18;    // microseconds, 30000 years: a timer that is due then never fires

/// Guards the tasks and timers of all loops. Low-priority threads share it with the main thread: it is held
/// for a few instructions, never while something is called, and no thread is woken under it.
std::mutex mutex;

}  // namespace

class LinuxTimer : public RunLoopTimer {
 public:
  LinuxTimer(double timeInterval, std::shared_ptr<Object> target, Selector selector, bool repeats)
      : created_(g_get_monotonic_time()),
        period_(std::max((timeInterval > 0 ? timeInterval : intervalOfNone) * microsecondsInSecond,
                         shortestPeriod)),
        selector_(selector),
        repeats_(repeats),
        target_(std::move(target)) {}

  bool isValid() const override {
    const std::lock_guard<std::mutex> lock(mutex);
    return target_ != nullptr;
  }

  void invalidate() override {
    std::shared_ptr<Object> target;  // released without the lock, like the loop's reference to this timer
    LinuxRunLoop::Timers::node_type installation;
    LinuxRunLoop *loop = nullptr;
    bool wakes = false;
    {
      const std::lock_guard<std::mutex> lock(mutex);
      target.swap(target_);
      loop = std::exchange(loop_, nullptr);
      if (loop != nullptr) {
        installation = loop->timers_.extract(installation_);
        wakes = loop->startWaking();
      }
    }
    // The loop may be waiting for this timer: better to wake it now than when all else sleeps.
    if (wakes) loop->wake();
  }

 private:
  friend class LinuxRunLoop;

  /// When the timer is due after `now`. Reckoned from the creation each time, so that no error adds up and a
  /// late firing shifts no later one. By conversions, for nothing else needs the library of mathematics.
  std::int64_t dueAfter(std::int64_t now) const {
    auto periods = static_cast<std::int64_t>(static_cast<double>(now - created_) / period_);
    std::int64_t due = 0;
    do {  // again only where rounding has led to a time that has come
      ++periods;
      due = created_ +
            static_cast<std::int64_t>(std::min(static_cast<double>(periods) * period_ + 0.5, latestDue));
    } while (due <= now);
    return due;
  }

  const std::int64_t created_;  // microseconds of the monotonic clock, like all times here
  const double period_;         // microseconds
  const Selector selector_;
  const bool repeats_;

  std::shared_ptr<Object> target_;  ///< null: invalid
  LinuxRunLoop *loop_ = nullptr;    ///< where it is installed
  LinuxRunLoop::Timers::iterator installation_;
};

// ---- The loop and its source

struct LinuxRunLoop::Source {
  GSource base;
  // Atomic, since the loop's thread may be another one than that which made the source.
  std::atomic<LinuxRunLoop *> loop;

  static LinuxRunLoop &loopOf(GSource *source) { return *reinterpret_cast<Source *>(source)->loop.load(); }
};

std::shared_ptr<LinuxRunLoop> LinuxRunLoop::of(GMainContext *context) {
  static auto &loops = *new std::map<GMainContext *, std::shared_ptr<LinuxRunLoop>>;
  static std::mutex loopsMutex;
  const std::lock_guard<std::mutex> lock(loopsMutex);
  auto &loop = loops[context];
  if (loop == nullptr) loop.reset(new LinuxRunLoop(context));
  return loop;
}

LinuxRunLoop::LinuxRunLoop(GMainContext *context) : context_(g_main_context_ref(context)) {
  ForkedChild::expect();
  static GSourceFuncs functions{&prepare, &check, &dispatch, nullptr, nullptr, nullptr};
  GSource *const source = g_source_new(&functions, sizeof(Source));
  (new (&reinterpret_cast<Source *>(source)->loop) std::atomic<LinuxRunLoop *>(nullptr))->store(this);
  g_source_set_name(source, "KXPublisher");
  g_source_attach(source, context_);
  g_source_unref(source);  // the context keeps it
}

bool LinuxRunLoop::runsOnCurrentThread() const {
  return g_main_context_is_owner(context_) != FALSE;
}

bool LinuxRunLoop::runsOnAnotherThread() const {
  const std::thread::id thread = thread_;
  return thread != std::thread::id() && thread != std::this_thread::get_id();
}

void LinuxRunLoop::perform(WorkItem block) {
  if (ForkedChild::isThisProcess()) return;
  bool wakes = false;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    tasks_.push_back(std::move(block));
    wakes = startWaking();
  }
  if (wakes) wake();
}

void LinuxRunLoop::addTimer(const std::shared_ptr<RunLoopTimer> &timer, RunLoopMode /*mode*/) {
  const auto linuxTimer = std::dynamic_pointer_cast<LinuxTimer>(timer);
  if (linuxTimer == nullptr || ForkedChild::isThisProcess()) return;
  bool wakes = false;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    if (linuxTimer->target_ == nullptr || linuxTimer->loop_ != nullptr) return;
    linuxTimer->loop_ = this;
    linuxTimer->installation_ = timers_.emplace(linuxTimer->dueAfter(linuxTimer->created_), linuxTimer);
    wakes = startWaking();
  }
  if (wakes) wake();
}

gboolean LinuxRunLoop::prepare(GSource *source, gint *timeout) {
  *timeout = -1;
  if (ForkedChild::isThisProcess()) return FALSE;
  LinuxRunLoop &loop = Source::loopOf(source);
  loop.thread_ = std::this_thread::get_id();
  *timeout = loop.untilNextDue(/*mayWait=*/true);
  return *timeout == 0;
}

gboolean LinuxRunLoop::check(GSource *source) {
  return !ForkedChild::isThisProcess() && Source::loopOf(source).untilNextDue(/*mayWait=*/false) == 0;
}

gboolean LinuxRunLoop::dispatch(GSource *source, GSourceFunc /*callback*/, gpointer /*data*/) {
  LinuxRunLoop &loop = Source::loopOf(source);
  // Timers first: what they hand over has its turn right after them, and not in another iteration.
  const std::int64_t now = g_get_monotonic_time();
  while (loop.fireTimer(now)) {
  }
  loop.runTasks();
  return G_SOURCE_CONTINUE;
}

bool LinuxRunLoop::startWaking() {
  return std::exchange(mayWait_, false);
}

int LinuxRunLoop::untilNextDue(bool mayWait) {
  std::int64_t due = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    mayWait_ = mayWait && tasks_.empty();
    if (!tasks_.empty()) return 0;
    if (timers_.empty()) return -1;
    due = timers_.begin()->first;
  }
  constexpr std::int64_t microsecondsInMillisecond = 1000;
  const std::int64_t wait = std::max<std::int64_t>(due - g_get_monotonic_time(), 0);
  const std::int64_t milliseconds = (wait + microsecondsInMillisecond - 1) / microsecondsInMillisecond;
  return static_cast<int>(std::min<std::int64_t>(milliseconds, std::numeric_limits<int>::max()));
}

void LinuxRunLoop::runTasks() {
  // Those that are there now: tasks that submit tasks must not keep the loop from its other sources. GLib
  // does not call this again while one of them runs a loop of its own.
  {
    const std::lock_guard<std::mutex> lock(mutex);
    runningTasks_.swap(tasks_);
  }
  for (WorkItem &task : runningTasks_) {
    runAtBoundary([&task] { std::exchange(task, nullptr)(); });
  }
  runningTasks_.clear();
}

bool LinuxRunLoop::fireTimer(std::int64_t now) {
  std::shared_ptr<LinuxTimer> timer;  // outlive the lock
  std::shared_ptr<Object> target;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    if (timers_.empty() || timers_.begin()->first > now) return false;
    auto installation = timers_.extract(timers_.begin());
    timer = installation.mapped();
    target = timer->target_;
    if (timer->repeats_) {
      installation.key() = timer->dueAfter(now);
      timer->installation_ = timers_.insert(std::move(installation));
    } else {
      timer->target_ = nullptr;
      timer->loop_ = nullptr;
    }
  }
  runAtBoundary([&timer, &target] { timer->selector_.perform(*target, timer); });
  return true;
}

// ---- The service

LinuxRunLoopService::LinuxRunLoopService() : main_(LinuxRunLoop::of(g_main_context_default())) {}

std::shared_ptr<RunLoop> LinuxRunLoopService::currentRunLoop() {
  GMainContext *const context = g_main_context_ref_thread_default();
  auto loop = LinuxRunLoop::of(context);
  g_main_context_unref(context);
  return loop;
}

std::shared_ptr<RunLoopTimer> LinuxRunLoopService::timerWithTimeInterval(
    double timeInterval, const std::shared_ptr<Object> &target, Selector selector, bool repeats) {
  return std::make_shared<LinuxTimer>(timeInterval, target, selector, repeats);
}

}  // namespace kx
