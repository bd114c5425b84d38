// When the loop is woken for what is handed over to it.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "platform/linux/threads/LinuxRunLoop.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/support/ChildProcess.h"

namespace {

std::atomic<int> wakeUps{0};

}  // namespace

// What the library calls, in place of GLib's.
extern "C" __attribute__((visibility("default"))) void g_main_context_wakeup(GMainContext *context) {
  static auto *const glibs =
      reinterpret_cast<decltype(&g_main_context_wakeup)>(dlsym(RTLD_NEXT, "g_main_context_wakeup"));
  ++wakeUps;
  glibs(context);
}

namespace kx {
namespace {

class LinuxRunLoopWakingTest : public testing::Test {
 protected:
  class Target : public Object {
   public:
    void fire(const std::shared_ptr<RunLoopTimer> & /*timer*/) {}
  };

  /// One that will not fire while the test runs.
  std::shared_ptr<RunLoopTimer> timer() {
    return runLoops.timerWithTimeInterval(86400, std::make_shared<Target>(),
                                          Selector::of<&Target::fire>("fire:"), /*repeats=*/false);
  }
  void install(const std::shared_ptr<RunLoopTimer> &timer) {
    runLoops.mainRunLoop()->addTimer(timer, RunLoopMode::commonModes);
  }
  /// By what changes while the loop may have begun to wait. Such a loop is that of a host which waits by
  /// itself, on the loop's file descriptors.
  static int wakeUpsBy(const std::function<void()> &change) {
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    gint priority = 0;
    g_main_context_prepare(nullptr, &priority);
    wakeUps = 0;
    change();
    return wakeUps;
  }

  const MainThread thread;
  LinuxRunLoopService runLoops;
  LinuxRunLoop &main = *runLoops.linuxMainRunLoop();
};

TEST_F(LinuxRunLoopWakingTest, IsWokenAnewEachTimeThatItWaits) {
  constexpr int rounds = 200;
  std::atomic<int> ran{0};
  std::thread other([&] {
    for (int i = 0; i < rounds; ++i) {
      main.perform([&ran] { ++ran; });
      EXPECT_TRUE(eventually([&] { return ran > i; }));
    }
  });
  EXPECT_TRUE(thread.runUntil([&ran] { return ran == rounds; }));
  other.join();
}

TEST_F(LinuxRunLoopWakingTest, IsWokenByEachThatMayChangeItsWait) {
  const auto never = timer();
  EXPECT_EQ(wakeUpsBy([&] { install(never); }), 1);
  EXPECT_EQ(wakeUpsBy([&] { main.perform([] {}); }), 1);
  EXPECT_EQ(wakeUpsBy([&] { never->invalidate(); }), 1);
  EXPECT_EQ(wakeUpsBy([&] { never->invalidate(); }), 0);
}

TEST_F(LinuxRunLoopWakingTest, IsWokenOnceForABurst) {
  EXPECT_EQ(wakeUpsBy([this] {
              for (int i = 0; i < 10; ++i) main.perform([] {});
              const auto never = timer();
              install(never);
              never->invalidate();
            }),
            1);
}

TEST_F(LinuxRunLoopWakingTest, IsWokenThoughItMayHaveWaitedBeforeTheLibraryCame) {
  GMainContext *const context = g_main_context_new();
  const auto loop = LinuxRunLoop::of(context);
  g_main_context_unref(context);
  wakeUps = 0;
  loop->perform([] {});
  loop->perform([] {});
  EXPECT_EQ(wakeUps, 1);
}

TEST_F(LinuxRunLoopWakingTest, IsNotWokenByItsOwnTask) {
  bool ran = false;
  int wakeUpsInTask = -1;
  main.perform([&] {
    wakeUps = 0;
    main.perform([&ran] { ran = true; });
    install(timer());
    wakeUpsInTask = wakeUps;
  });
  EXPECT_TRUE(thread.runUntil([&ran] { return ran; }));
  EXPECT_EQ(wakeUpsInTask, 0);
}

TEST_F(LinuxRunLoopWakingTest, IsNotWokenByTheHostsOwnCallback) {
  struct Host {
    LinuxRunLoop &loop;
    int wakeUpsInCallback;
  } host{main, -1};
  g_timeout_add(
      20,
      [](gpointer data) -> gboolean {
        auto &own = *static_cast<Host *>(data);
        wakeUps = 0;
        own.loop.perform([] {});
        own.wakeUpsInCallback = wakeUps;
        return G_SOURCE_REMOVE;
      },
      &host);
  EXPECT_TRUE(thread.runUntil([&host] { return host.wakeUpsInCallback >= 0; }));
  EXPECT_EQ(host.wakeUpsInCallback, 0);
}

}  // namespace
}  // namespace kx
