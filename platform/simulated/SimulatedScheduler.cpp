#include "KXPublisher/platform/simulated/SimulatedScheduler.h"

#include <algorithm>
#include <cmath>

#include "platform/simulated/SimulatedFiber.h"

namespace kx {

namespace {

/// More tasks than this without time passing are one that submits itself again and again.
constexpr std::uint64_t tooManyTasks = 1'000'000;
/// Yield points that its submitter passes before a task of the background queue begins, as a rule.
constexpr std::uint64_t backgroundDelay = 16;
/// A thread that has ended a task, or waits for events, has left it far behind.
constexpr std::uint64_t farMoreYields = 1000;
/// As many workers as the system gives a process's queues.
constexpr std::size_t mostWorkers = 64;

thread_local SimulatedScheduler *currentScheduler = nullptr;

/// Sets a variable until the end of the scope, however it is left.
class Setting {
 public:
  Setting(bool &variable, bool value) : variable_(variable), before_(std::exchange(variable, value)) {}
  ~Setting() { variable_ = before_; }
  Setting(const Setting &) = delete;
  Setting &operator=(const Setting &) = delete;

 private:
  bool &variable_;
  const bool before_;
};

void requireTime(double seconds) {
  if (!(seconds >= 0) || std::isinf(seconds)) {
    throw std::invalid_argument("time goes forward only, and by a number of seconds: " +
                                std::to_string(seconds));
  }
}

}  // namespace

struct SimulatedScheduler::Worker : SimulatedScheduler::Thread {
  bool mayGoOn() const { return !fiber.isIdle() && (waitsUntil == nullptr || (*waitsUntil)()); }

  SimulatedFiber fiber;
  const std::function<bool()> *waitsUntil = nullptr;  ///< null: it waits for nothing but its turn
};

SimulatedScheduler::SimulatedScheduler(std::uint64_t seed)
    : random_(seed), seeded_(seed != 0), atOnceShare_(seeded_ ? 1.0 / 256 : 0) {
  if (seeded_) switchShare_ = 1.0 / static_cast<double>(2U << (random_() % 6));
  if (currentScheduler == nullptr) currentScheduler = this;
}

SimulatedScheduler::~SimulatedScheduler() {
  finish();
}

SimulatedScheduler *SimulatedScheduler::current() {
  return currentScheduler;
}

DispatchQueue &SimulatedScheduler::globalQueue(DispatchQueuePriority priority) {
  switch (priority) {
    case DispatchQueuePriority::high:
      return high_;
    case DispatchQueuePriority::standard:
      return standard_;
    case DispatchQueuePriority::low:
      return low_;
    case DispatchQueuePriority::background:
      break;
  }
  return background_;
}

// ---- Submitting

void SimulatedScheduler::Queue::async(WorkItem task) {
  scheduler_.submit(*this, std::move(task));
}

void SimulatedScheduler::Queue::sync(WorkItem task) {
  scheduler_.submitAndWait(*this, task);
}

SimulatedScheduler::Task SimulatedScheduler::makeTask(Queue &queue, WorkItem work) {
  Task task{&queue, std::move(work), ++tasks_};
  record(SimulatedTrace::Kind::submits, runningThread(), task.number, queue.name());
  return task;
}

void SimulatedScheduler::submit(Queue &queue, WorkItem work) {
  if (finished_) return;
  Task task = makeTask(queue, std::move(work));
  const bool background = &queue == &background_;
  if (background && chance(atOnceShare_)) {
    Worker &worker = begin(std::move(task));
    if (running_ == nullptr) {
      runThrough(worker);
    } else {
      urgent_ = &worker;
      running_->fiber.suspend();
    }
    return;
  }
  if (background && seeded_) {
    task.submitter = &runningThread();
    task.beginsAfter = task.submitter->yields + backgroundDelay;
  }
  ready_.push_back(std::move(task));
  yield();
}

void SimulatedScheduler::submitAndWait(Queue &queue, const WorkItem &work) {
  if (&queue == &main_ && running_ == nullptr) {
    throw SimulatedDeadlock("the main thread waits for the main queue, and so for itself");
  }
  if (finished_) return;
  const auto done = std::make_shared<bool>(false);
  // Made before the work is submitted: from then on nothing may fail, for the work uses what its submitter
  // has.
  const std::function<bool()> hasEnded = [done] { return *done; };
  ready_.push_back(makeTask(queue, [work, done] {
    struct Done {
      bool &flag;
      ~Done() { flag = true; }
    } const atTheEnd{*done};
    work();
  }));
  waitUntil(hasEnded);
}

// ---- Giving way

void SimulatedScheduler::yield() {
  if (!seeded_ || inOnePiece_ || finished_) return;
  Thread &thread = runningThread();
  ++thread.yields;
  if (!chance(switchShare_)) return;
  if (running_ != nullptr) {
    record(SimulatedTrace::Kind::overtaken, thread, thread.task, "");
    running_->fiber.suspend();
    record(SimulatedTrace::Kind::goesOn, thread, thread.task, "");
    return;
  }
  // The main thread is in the middle of something: workers run, a piece or some.
  while (runOne(/*mainQueueToo=*/false) && chance(0.5)) {
  }
}

void SimulatedScheduler::waitUntil(const std::function<bool()> &condition) {
  Thread &thread = runningThread();
  thread.yields += farMoreYields;
  record(SimulatedTrace::Kind::waits, thread, thread.task, "");
  if (running_ != nullptr) {
    Worker &worker = *running_;
    worker.waitsUntil = &condition;
    while (!condition()) worker.fiber.suspend();
    worker.waitsUntil = nullptr;
  } else {
    while (!condition()) {
      if (!runOne(/*mainQueueToo=*/false))
        throw SimulatedDeadlock("a task waits for another one that cannot run");
    }
    throwPending();
  }
  record(SimulatedTrace::Kind::goesOn, thread, thread.task, "");
}

// ---- Running

bool SimulatedScheduler::runOne(bool mainQueueToo) {
  // What was begun and may go on; without a seed, before anything else.
  std::vector<Worker *> begun;
  std::size_t busy = 0;
  for (const auto &worker : workers_) {
    if (worker->fiber.isIdle()) continue;
    ++busy;
    if (worker->mayGoOn()) begun.push_back(worker.get());
  }
  if (!seeded_ && !begun.empty()) {
    resume(*begun.front());
    return true;
  }
  // The main queue is serial: of its tasks only the first may begin.
  std::vector<Tasks::iterator> beginnable;
  for (auto task = ready_.begin(); task != ready_.end(); ++task) {
    if (task->queue == &main_) {
      if (!std::exchange(mainQueueToo, false)) continue;
    } else {
      if (busy >= mostWorkers) continue;
      if (task->submitter != nullptr && task->submitter->yields < task->beginsAfter) continue;
    }
    beginnable.push_back(task);
    if (!seeded_) break;
  }
  const std::size_t choices = begun.size() + beginnable.size();
  if (choices == 0) return false;
  const std::size_t choice = seeded_ ? static_cast<std::size_t>(random_() % choices) : 0;
  if (choice < begun.size()) {
    resume(*begun[choice]);
  } else {
    run(beginnable[choice - begun.size()]);
  }
  return true;
}

void SimulatedScheduler::run(const Tasks::iterator &task) {
  if (++tasksAtThisTime_ > tooManyTasks)
    throw SimulatedDeadlock("tasks run without end while no time passes");
  Task running = std::move(*task);
  ready_.erase(task);
  if (running.queue == &main_) {
    runOnMainThread(running);
  } else {
    resume(begin(std::move(running)));
  }
}

void SimulatedScheduler::runOnMainThread(const Task &task) {
  struct Ended {
    SimulatedScheduler &scheduler;
    const std::uint64_t before;
    ~Ended() {
      scheduler.record(SimulatedTrace::Kind::ends, scheduler.mainThread_, scheduler.mainThread_.task, "");
      scheduler.mainThread_.task = before;
      scheduler.mainThread_.yields += farMoreYields;
    }
  } const atTheEnd{*this, std::exchange(mainThread_.task, task.number)};
  record(SimulatedTrace::Kind::begins, mainThread_, task.number, task.queue->name());
  task.work();
}

SimulatedScheduler::Worker &SimulatedScheduler::begin(Task task) {
  auto idle = std::find_if(workers_.begin(), workers_.end(),
                           [](const auto &worker) { return worker->fiber.isIdle(); });
  if (idle == workers_.end()) {
    workers_.push_back(std::make_unique<Worker>());
    idle = std::prev(workers_.end());
    (*idle)->number = static_cast<unsigned>(workers_.size());
  }
  Worker &worker = **idle;
  worker.fiber.assign([this, &worker, task = std::move(task)]() mutable {
    worker.task = task.number;
    record(SimulatedTrace::Kind::begins, worker, task.number, task.queue->name());
    try {
      task.work();
      task.work = nullptr;
    } catch (...) {
      if (pending_ == nullptr) pending_ = std::current_exception();
    }
    worker.yields += farMoreYields;
    record(SimulatedTrace::Kind::ends, worker, task.number, "");
    worker.task = 0;
  });
  return worker;
}

void SimulatedScheduler::resume(Worker &worker) {
  running_ = &worker;
  worker.fiber.resume();
  running_ = nullptr;
  while (Worker *const urgent = std::exchange(urgent_, nullptr)) {
    runThrough(*urgent);
    running_ = &worker;
    worker.fiber.resume();
    running_ = nullptr;
  }
}

void SimulatedScheduler::runThrough(Worker &worker) {
  const Setting piece(inOnePiece_, true);
  resume(worker);
}

void SimulatedScheduler::throwPending() {
  if (const auto exception = std::exchange(pending_, nullptr)) std::rethrow_exception(exception);
}

void SimulatedScheduler::requireMainThread() const {
  if (running_ != nullptr) throw std::logic_error("only the main thread drives the simulated device");
}

void SimulatedScheduler::runReadyTasks() {
  requireMainThread();
  if (suspended_ || finished_) return;
  makeDueTasksReady();  // of the time while the process was suspended
  mainThread_.yields += farMoreYields;
  throwPending();
  while (runOne(/*mainQueueToo=*/true)) throwPending();
  if (begunTasks() != 0) throw SimulatedDeadlock("a task waits for another one that cannot run");
}

bool SimulatedScheduler::step() {
  requireMainThread();
  if (suspended_ || finished_) return false;
  makeDueTasksReady();
  mainThread_.yields += farMoreYields;
  const bool ran = runOne(/*mainQueueToo=*/true);
  throwPending();
  return ran;
}

std::size_t SimulatedScheduler::begunTasks() const {
  return static_cast<std::size_t>(std::count_if(workers_.begin(), workers_.end(),
                                                [](const auto &worker) { return !worker->fiber.isIdle(); }));
}

// ---- Time

void SimulatedScheduler::advance(double seconds) {
  requireTime(seconds);
  const double end = uptime_ + seconds;
  runReadyTasks();
  while (!suspended_ && !later_.empty() && later_.begin()->first.first <= end) {
    uptime_ = std::max(uptime_, later_.begin()->first.first);
    tasksAtThisTime_ = 0;
    makeDueTasksReady();
    runReadyTasks();
  }
  uptime_ = end;
  tasksAtThisTime_ = 0;
}

void SimulatedScheduler::makeDueTasksReady() {
  const auto first = ready_.size();
  while (!later_.empty() && later_.begin()->first.first <= uptime_) {
    ready_.push_back(std::move(later_.begin()->second.task));
    later_.erase(later_.begin());
  }
  if (!seeded_) return;
  for (auto last = ready_.size(); last > first + 1; --last) {
    std::swap(ready_[last - 1], ready_[first + static_cast<std::size_t>(random_() % (last - first))]);
  }
}

void SimulatedScheduler::runUntilIdle() {
  runReadyTasks();
  while (true) {
    const auto event = std::find_if(later_.begin(), later_.end(),
                                    [](const auto &entry) { return entry.second.kind == Later::event; });
    if (event == later_.end() || suspended_) return;
    advance(std::max(0.0, event->first.first - uptime_));
  }
}

std::optional<double> SimulatedScheduler::nextDue() const {
  if (!ready_.empty() || begunTasks() != 0) return 0;
  if (later_.empty()) return std::nullopt;
  return std::max(0.0, later_.begin()->first.first - uptime_);
}

SimulatedScheduler::Ticket SimulatedScheduler::after(double delay, DispatchQueue &queue, WorkItem task,
                                                     Later kind) {
  requireTime(delay);
  if (finished_) return {};
  Task made = makeTask(static_cast<Queue &>(queue), std::move(task));
  const Ticket ticket{uptime_ + delay, made.number};
  if (delay > 0) {
    later_.emplace(ticket, LaterTask{std::move(made), kind});
  } else {
    ready_.push_back(std::move(made));
  }
  return ticket;
}

void SimulatedScheduler::cancel(const Ticket &ticket) {
  const auto found = later_.find(ticket);
  if (found == later_.end()) return;
  const Task dropped =
      std::move(found->second.task);  // what it holds is released when it is no longer listed
  later_.erase(found);
}

void SimulatedScheduler::finish() {
  if (finished_ || running_ != nullptr) return;
  const Setting piece(inOnePiece_, true);
  mainThread_.yields += farMoreYields;
  // What is thrown now concerns nobody any more, unless it is that they run without end.
  for (bool more = true; more && tasksAtThisTime_ <= tooManyTasks;) {
    try {
      more = runOne(/*mainQueueToo=*/true);
    } catch (...) {
    }
  }
  finished_ = true;
  if (currentScheduler == this) currentScheduler = nullptr;
  pending_ = nullptr;
  for (auto &worker : workers_) {
    // One that waits for ever stays: its stack holds what cannot be released from outside.
    if (!worker->fiber.isIdle()) static_cast<void>(worker.release());
  }
  workers_.clear();
  // Releasing them may release more.
  for (Tasks dropped; !ready_.empty(); dropped.clear()) dropped.swap(ready_);
  for (std::map<Ticket, LaterTask> dropped; !later_.empty(); dropped.clear()) dropped.swap(later_);
}

// ---- Chance and record

bool SimulatedScheduler::chance(double share) {
  if (share <= 0) return false;
  if (share >= 1) return true;
  return static_cast<double>(random_() >> 11) * 0x1p-53 < share;
}

SimulatedScheduler::Thread &SimulatedScheduler::runningThread() {
  return running_ != nullptr ? *running_ : mainThread_;
}

void SimulatedScheduler::record(SimulatedTrace::Kind kind, const Thread &thread, std::uint64_t task,
                                const char *what) {
  if (trace.recording) trace.add({uptime_, thread.number, kind, task, what});
}

void SimulatedScheduler::say(const char *what, const std::string &of) {
  if (!trace.recording) return;
  const Thread &thread = runningThread();
  trace.add({uptime_, thread.number, SimulatedTrace::Kind::says, thread.task,
             of.empty() ? what : what + (" " + of)});
}

}  // namespace kx
