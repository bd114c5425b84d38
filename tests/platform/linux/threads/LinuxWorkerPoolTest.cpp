#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "KXPublisher/diagnostics/KXLog.h"
#include "platform/linux/threads/LinuxWorkerPool.h"
#include "tests/platform/linux/threads/ThreadFacts.h"
#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

constexpr std::array<DispatchQueuePriority, 4> priorities{
    DispatchQueuePriority::high, DispatchQueuePriority::standard, DispatchQueuePriority::low,
    DispatchQueuePriority::background};

/// Never destroyed, as in a real process: its threads may live as long.
LinuxWorkerPool &pool() {
  static auto &pool = *new LinuxWorkerPool;
  return pool;
}

/// What a worker of that priority says of itself.
ThreadFacts workerFacts(DispatchQueuePriority priority) {
  const auto facts = std::make_shared<std::promise<ThreadFacts>>();
  pool().submit(priority, [facts] { facts->set_value(ThreadFacts::ofCurrentThread()); });
  return facts->get_future().get();
}

/// From here on the process may do no more than any user's, and there is no other process of that user.
void becomeUnprivileged() {
  constexpr uid_t nobodyInParticular = 61234;
  if (geteuid() != 0) return;
  ASSERT_EQ(setresuid(nobodyInParticular, nobodyInParticular, nobodyInParticular), 0);
}

/// How many threads the process has while the library has none. A sanitizer's own starts with the first one.
std::size_t threadsCountAtRest() {
  std::atomic<long> thread{0};
  std::thread([&thread] { thread = syscall(SYS_gettid); }).join();
  // It has been joined a moment before the kernel lets go of it.
  const std::string entry = "/proc/self/task/" + std::to_string(thread);
  EXPECT_TRUE(eventually([&entry] { return !std::filesystem::exists(entry); }));
  return threadsCount();
}

/// Holds tasks back until the test lets them go.
class Gate {
 public:
  ~Gate() {
    open = true;
    EXPECT_TRUE(eventually([this] { return left == arrived; }));
  }
  void pass() {
    ++arrived;
    while (!open) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ++left;
  }
  std::atomic<unsigned> arrived{0};
  std::atomic<bool> open{false};

 private:
  std::atomic<unsigned> left{0};
};

TEST(LinuxWorkerPool, WorkersAreNamedAfterTheirPriority) {
  EXPECT_EQ(workerFacts(DispatchQueuePriority::high).name, "kx-high");
  EXPECT_EQ(workerFacts(DispatchQueuePriority::standard).name, "kx-standard");
  EXPECT_EQ(workerFacts(DispatchQueuePriority::low).name, "kx-low");
  EXPECT_EQ(workerFacts(DispatchQueuePriority::background).name, "kx-background");
}

TEST(LinuxWorkerPool, LowAndBackgroundWorkersHaveLessPriority) {
  const int own = ThreadFacts::ofCurrentThread().niceValue;
  EXPECT_EQ(workerFacts(DispatchQueuePriority::high).niceValue, own);
  EXPECT_EQ(workerFacts(DispatchQueuePriority::standard).niceValue, own);
  EXPECT_EQ(workerFacts(DispatchQueuePriority::low).niceValue, std::min(own + 5, 19));
  EXPECT_EQ(workerFacts(DispatchQueuePriority::background).niceValue, std::min(own + 10, 19));
  EXPECT_EQ(ThreadFacts::ofCurrentThread().niceValue, own);
}

TEST(LinuxWorkerPool, WorkThatABackgroundTaskSubmitsHasItsOwnPriority) {
  becomeUnprivileged();  // as most hosts are: it could raise its priority again otherwise
  const int own = ThreadFacts::ofCurrentThread().niceValue;
  constexpr int unknown = 100;
  std::atomic<int> standard{unknown};
  std::atomic<int> background{unknown};
  Gate gate;  // so that the background worker is still there
  pool().submit(DispatchQueuePriority::background, [&] {
    background = ThreadFacts::ofCurrentThread().niceValue;
    pool().submit(DispatchQueuePriority::standard,
                  [&standard] { standard = ThreadFacts::ofCurrentThread().niceValue; });
    gate.pass();
  });
  EXPECT_TRUE(eventually([&standard] { return standard != unknown; }));
  EXPECT_EQ(standard, own);
  EXPECT_EQ(background, std::min(own + 10, 19));
}

TEST(LinuxWorkerPool, ThreadsGoAwayWhenThereIsNothingToDo) {
  const std::size_t before = threadsCountAtRest();
  for (int round = 0; round < 3; ++round) {
    std::atomic<int> ran{0};
    constexpr int tasksNumber = 40;
    for (int i = 0; i < tasksNumber; ++i) {
      for (const auto priority : priorities) pool().submit(priority, [&ran] { ++ran; });
    }
    EXPECT_TRUE(eventually([&ran] { return ran == tasksNumber * static_cast<int>(priorities.size()); }));
    EXPECT_TRUE(eventually([before] { return threadsCount() == before; }));
  }
}

TEST(LinuxWorkerPool, TasksRunSideBySideUpToALimit) {
  constexpr unsigned limit = LinuxWorkerPool::maximumThreads;
  const std::size_t before = threadsCountAtRest();
  Gate gate;
  std::atomic<unsigned> ended{0};
  for (unsigned i = 0; i < 3 * limit; ++i) {
    pool().submit(DispatchQueuePriority::standard, [&] {
      gate.pass();
      ++ended;
    });
  }
  EXPECT_TRUE(eventually([&gate] { return gate.arrived >= limit; }));
  // The others of the queue wait; other queues do not.
  EXPECT_EQ(workerFacts(DispatchQueuePriority::background).name, "kx-background");
  EXPECT_EQ(gate.arrived, limit);
  EXPECT_LE(threadsCount(), before + limit + 2);  // the launcher, and the background worker that has just run
  gate.open = true;
  EXPECT_TRUE(eventually([&ended] { return ended == 3 * limit; }));
}

TEST(LinuxWorkerPool, TasksStartInTheOrderOfSubmission) {
  // All workers but one are busy, so that the order can be seen.
  Gate gate;
  for (unsigned i = 1; i < LinuxWorkerPool::maximumThreads; ++i) {
    pool().submit(DispatchQueuePriority::background, [&gate] { gate.pass(); });
  }
  EXPECT_TRUE(eventually([&gate] { return gate.arrived == LinuxWorkerPool::maximumThreads - 1; }));
  std::vector<int> order;
  std::atomic<bool> ended{false};
  constexpr int tasksNumber = 1000;
  for (int i = 0; i < tasksNumber; ++i) {
    pool().submit(DispatchQueuePriority::background, [&, i] {
      order.push_back(i);
      if (i == tasksNumber - 1) ended = true;
    });
  }
  EXPECT_TRUE(eventually([&ended] { return ended.load(); }));
  EXPECT_EQ(order.size(), static_cast<std::size_t>(tasksNumber));
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(LinuxWorkerPool, ATaskReleasesWhatItHoldsOnItsWorker) {
  const auto releasedOn = std::make_shared<std::promise<std::string>>();
  std::shared_ptr<int> held(new int, [releasedOn](const int *object) {
    delete object;
    releasedOn->set_value(ThreadFacts::ofCurrentThread().name);
  });
  pool().submit(DispatchQueuePriority::standard, [held = std::move(held)] {});
  EXPECT_EQ(releasedOn->get_future().get(), "kx-standard");
}

TEST(LinuxWorkerPool, ATaskThatThrowsIsReportedAndTheNextOneRuns) {
  const std::size_t before = threadsCountAtRest();
  testing::internal::CaptureStderr();
  std::atomic<int> ran{0};
  for (const auto priority : priorities) {
    pool().submit(priority, [] { throw std::runtime_error("the reason"); });
    pool().submit(priority, [] { throw 1; });
    pool().submit(priority, [&ran] { ++ran; });
  }
  EXPECT_TRUE(eventually([&ran] { return ran == static_cast<int>(priorities.size()); }));
  EXPECT_TRUE(eventually([before] { return threadsCount() == before; }));
  const std::string errors = testing::internal::GetCapturedStderr();
  EXPECT_THAT(errors, testing::HasSubstr("[KX Error] An exception ended a task: the reason\n"));
  EXPECT_THAT(errors, testing::HasSubstr("[KX Error] An exception ended a task: not a std::exception\n"));
}

TEST(LinuxWorkerPool, PrintsNothingOfATaskThatThrowsWhileTheLogIsOff) {
  const std::size_t before = threadsCountAtRest();
  KXLog::sharedInstance()->setLogLevel(KXLogLevelOff);
  testing::internal::CaptureStderr();
  std::atomic<bool> ran{false};
  pool().submit(DispatchQueuePriority::standard, [] { throw std::runtime_error("the reason"); });
  pool().submit(DispatchQueuePriority::standard, [&ran] { ran = true; });
  EXPECT_TRUE(eventually([&ran] { return ran.load(); }));
  EXPECT_TRUE(eventually([before] { return threadsCount() == before; }));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

std::atomic<int> signalsHandled{0};

TEST(LinuxWorkerPool, TheHostsSignalHandlersNeverRunOnWorkers) {
  struct sigaction action {};
  action.sa_handler = [](int) { ++signalsHandled; };
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  Gate gate;
  for (const auto priority : priorities) pool().submit(priority, [&gate] { gate.pass(); });
  EXPECT_TRUE(eventually([&gate] { return gate.arrived == priorities.size(); }));

  // With this thread's mask closed only another thread could handle the process's signal.
  sigset_t userSignal;
  sigemptyset(&userSignal);
  sigaddset(&userSignal, SIGUSR1);
  sigset_t before;
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &userSignal, &before), 0);
  ASSERT_EQ(kill(getpid(), SIGUSR1), 0);
  sigset_t pending;
  ASSERT_EQ(sigpending(&pending), 0);
  EXPECT_EQ(sigismember(&pending, SIGUSR1), 1);
  EXPECT_EQ(signalsHandled, 0);
  ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
  EXPECT_TRUE(eventually([] { return signalsHandled == 1; }));
}

TEST(LinuxWorkerPool, WorkersBlockEverySignalButTheirOwnFaults) {
  const auto maskBefore = ThreadFacts::ofCurrentThread().blocked;
  for (const auto priority : priorities) {
    const std::uint64_t blocked = std::stoull(workerFacts(priority).blocked, nullptr, 16);
    const auto isBlocked = [blocked](int signal) { return (blocked >> (signal - 1) & 1) != 0; };
    for (int signal = 1; signal < 32; ++signal) {
      if (signal == SIGKILL || signal == SIGSTOP) continue;
      const bool fault = signal == SIGSEGV || signal == SIGBUS || signal == SIGFPE || signal == SIGILL ||
                         signal == SIGTRAP || signal == SIGSYS;
      EXPECT_EQ(isBlocked(signal), !fault) << signal;
    }
  }
  EXPECT_EQ(ThreadFacts::ofCurrentThread().blocked, maskBefore);
}

/// How many threads the system grants besides the first one.
class LinuxWorkerPoolLimit : public testing::TestWithParam<unsigned> {};

TEST_P(LinuxWorkerPoolLimit, TasksWaitForTheNextSubmissionWhenNoThreadCanBeMade) {
  const std::size_t own = threadsCountAtRest();
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NPROC, &limit), 0);
  const rlim_t before = limit.rlim_cur;
  limit.rlim_cur = 1 + GetParam();
  ASSERT_EQ(setrlimit(RLIMIT_NPROC, &limit), 0);
  becomeUnprivileged();  // the limit does not bind others
  std::atomic<int> ran{0};
  EXPECT_NO_THROW(pool().submit(DispatchQueuePriority::background, [&ran] { ++ran; }));
  EXPECT_NO_THROW(pool().submit(DispatchQueuePriority::standard, [&ran] { ++ran; }));
  EXPECT_TRUE(eventually([own] { return threadsCount() == own; }));
  EXPECT_EQ(ran, 0);

  limit.rlim_cur = before;
  ASSERT_EQ(setrlimit(RLIMIT_NPROC, &limit), 0);
  pool().submit(DispatchQueuePriority::background, [&ran] { ++ran; });
  pool().submit(DispatchQueuePriority::standard, [&ran] { ++ran; });
  EXPECT_TRUE(eventually([&ran] { return ran == 4; }));
  EXPECT_TRUE(eventually([own] { return threadsCount() == own; }));
}

INSTANTIATE_TEST_SUITE_P(ThreadsGranted, LinuxWorkerPoolLimit, testing::Values(0U, 1U));

TEST(LinuxWorkerPool, TakesTasksFromAllThreadsAtOnce) {
  std::atomic<int> ran{0};
  constexpr int submittersNumber = 8;
  constexpr int tasksNumber = 500;
  std::vector<std::thread> submitters;
  for (int i = 0; i < submittersNumber; ++i) {
    submitters.emplace_back([&ran] {
      for (int task = 0; task < tasksNumber; ++task) {
        pool().submit(priorities[static_cast<std::size_t>(task) % priorities.size()],
                      [&ran] { pool().submit(DispatchQueuePriority::standard, [&ran] { ++ran; }); });
      }
    });
  }
  for (std::thread &submitter : submitters) submitter.join();
  EXPECT_TRUE(eventually([&ran] { return ran == submittersNumber * tasksNumber; }));
}

}  // namespace
}  // namespace kx
