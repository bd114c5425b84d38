#include <atomic>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "tests/platform/linux/network/ReachabilityTest.h"

namespace kx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

class LinuxReachabilityChangesTest : public ReachabilityTest {};

TEST_F(LinuxReachabilityChangesTest, ALinkThatGoesDownAndUpIsReported) {
  addLink("eth0");
  ip("route add default dev eth0");
  const auto reports = report(anywhere);
  ip("link set eth0-far down");
  EXPECT_TRUE(becomes(reports, flagsOfNone));
  ip("link set eth0-far up");
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  ip("link set eth0 down");  // takes the route with it
  EXPECT_TRUE(becomes(reports, flagsOfNone));
  EXPECT_THAT(reports->flags, ElementsAre(flagsOfNone, flagsOfWifi, flagsOfNone));
  EXPECT_THAT(reports->targets, testing::Each(anywhere));
}

TEST_F(LinuxReachabilityChangesTest, ADefaultRouteThatIsAddedReplacedAndRemovedIsReported) {
  addLink("wlan0");
  addLink("rmnet0");
  const auto reports = report(anywhere);
  ip("route add default dev wlan0");
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  ip("route replace default dev rmnet0");
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  ip("route del default");
  EXPECT_TRUE(becomes(reports, flagsOfNone));
  EXPECT_THAT(reports->flags, ElementsAre(flagsOfWifi, flagsOfCellular, flagsOfNone));
}

// Who asks while the network changes to and fro would keep what was so for a moment.
TEST_F(LinuxReachabilityChangesTest, AChangeAndBackIsReportedWhenSomebodyHasAskedInBetween) {
  addLink("eth0");
  const auto reports = report(anywhere);
  ip("route add default dev eth0");
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  ip("route del default");
  EXPECT_TRUE(becomes(reports, flagsOfNone));
}

TEST_F(LinuxReachabilityChangesTest, AChangeThatWasAskedForIsReportedOnce) {
  addLink("eth0");
  const auto reports = report(anywhere);
  ip("route add default dev eth0");
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  settle();
  ip("route del default");
  EXPECT_TRUE(becomes(reports, flagsOfNone));
  settle();
  EXPECT_THAT(reports->flags, ElementsAre(flagsOfWifi, flagsOfNone));
}

TEST_F(LinuxReachabilityChangesTest, ARouteByIPv6IsReported) {
  addLink("eth0");
  const auto reports = report(anywhere);
  ip("route add ::/0 dev eth0");
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  ip("route del ::/0 dev eth0");
  EXPECT_TRUE(becomes(reports, flagsOfNone));
}

TEST_F(LinuxReachabilityChangesTest, ARouteThatGoesWithItsSourceAddressIsReported) {
  addLink("eth0");
  ip("addr add 10.1.2.3/24 dev eth0\nroute add default via 10.1.2.1 dev eth0 src 10.1.2.3");
  const auto reports = report(anywhere);
  ip("addr del 10.1.2.3/24 dev eth0");
  EXPECT_TRUE(becomes(reports, flagsOfNone));
}

TEST_F(LinuxReachabilityChangesTest, ARuleThatChoosesAnotherTableIsReported) {
  addLink("wlan0");
  addLink("rmnet0");
  ip("route add default dev wlan0\nroute add default dev rmnet0 table 51");
  const auto reports = report(anywhere);
  ip("rule add pref 100 table 51");
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
}

TEST_F(LinuxReachabilityChangesTest, ARuleByIPv6ThatChoosesAnotherTableIsReported) {
  addLink("wlan0");
  addLink("rmnet0");
  ip("route add ::/0 dev wlan0\nroute add ::/0 dev rmnet0 table 51");
  const auto reports = report(anywhere);
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  NetworkNamespace::ip6("rule add pref 100 table 51");
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
}

TEST_F(LinuxReachabilityChangesTest, ANextHopThatIsReplacedOrRemovedIsReported) {
  // As a kernel tells it whose administrator has every program know next hops.
  std::ofstream("/proc/sys/net/ipv4/nexthop_compat_mode") << 0;
  addLink("wlan0");
  addLink("rmnet0");
  ip("nexthop add id 1 dev wlan0\nroute add default nhid 1");
  const auto reports = report(anywhere);
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  ip("nexthop replace id 1 dev rmnet0");
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  ip("nexthop del id 1");
  EXPECT_TRUE(becomes(reports, flagsOfNone));
}

TEST_F(LinuxReachabilityChangesTest, OfTwoRoutesTheLossOfOneIsNoChange) {
  addLink("eth0");
  addLink("wlan0");
  ip("route add default dev eth0 metric 100\nroute add default dev wlan0 metric 600");
  const auto reports = report(anywhere);
  ip("route del default dev eth0 metric 100");
  settle();
  EXPECT_THAT(reports->flags, IsEmpty());
  ip("route del default dev wlan0 metric 600");
  EXPECT_TRUE(becomes(reports, flagsOfNone));
  EXPECT_THAT(reports->flags, ElementsAre(flagsOfNone));
}

TEST_F(LinuxReachabilityChangesTest, ChangesThatAreUndoneBeforeTheLoopSeesThemAreNotReported) {
  addLink("eth0");
  ip("route add default dev eth0");
  const auto reports = report(anywhere);
  ip("route del default\nroute add default dev eth0\nlink set eth0-far down\nlink set eth0-far up");
  settle();
  EXPECT_THAT(reports->flags, IsEmpty());
}

TEST_F(LinuxReachabilityChangesTest, WhatHappensWhileNothingIsScheduledIsNotReported) {
  addLink("eth0");
  EXPECT_TRUE(service->setCallback(anywhere, &Reports::add, {}));
  ip("route add default dev eth0");
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  const auto reports = report(anywhere);
  settle();
  EXPECT_THAT(reports->flags, IsEmpty());
  EXPECT_TRUE(unschedule(anywhere));
  ip("route del default");
  EXPECT_THAT(flags(), Optional(flagsOfNone));
  report(anywhere);
  settle();
  EXPECT_THAT(reports->flags, IsEmpty());
}

// ---- More than the loop can follow

TEST_F(LinuxReachabilityChangesTest, OfAFloodOfChangesTheLastOneWinsAndTheLoopStaysResponsive) {
  addLink("eth0");
  const auto reports = report(anywhere);
  std::string commands;
  for (int i = 0; i < 500; ++i) commands += "route add default dev eth0\nroute del default\n";
  commands += "route add default dev eth0\n";
  ChildProcess flood({"/sbin/ip", "-batch", "-"});
  int turns = 0;
  const guint otherWork = g_timeout_add(
      1, [](gpointer count) -> gboolean { return ++*static_cast<int *>(count), G_SOURCE_CONTINUE; }, &turns);
  flood.write(commands);
  flood.closeInput();
  EXPECT_TRUE(thread.runUntil([&] { return !flood.isRunning(); }));
  EXPECT_EQ(flood.exitCode(), 0);
  EXPECT_GT(turns, 3);
  settle();
  g_source_remove(otherWork);
  ASSERT_THAT(reports->flags, testing::Not(IsEmpty()));
  EXPECT_EQ(reports->flags.back(), flagsOfWifi);
  EXPECT_LT(reports->flags.size(), 500U);
}

TEST_F(LinuxReachabilityChangesTest, AFloodThatDoesNotEndKeepsNoChangeBack) {
  addLink("eth0");
  addLink("other");
  const auto reports = report(anywhere);
  std::atomic<bool> ended = false;
  std::atomic<int> changes = 0;
  std::thread flood([&] {
    for (; !ended; ++changes) NetworkNamespace::setMTU("other", 1400 + changes % 2);
  });
  while (changes == 0) std::this_thread::yield();
  ip("route add default dev eth0");
  const int changesBefore = changes;
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  EXPECT_LT(changes - changesBefore, 100000);
  ended = true;
  flood.join();
}

TEST_F(LinuxReachabilityChangesTest, NewsThatTheKernelHadToDropAreMadeUpFor) {
  addLink("eth0");
  const auto reports = report(anywhere);
  std::string commands;
  for (int i = 0; i < 3000; ++i) commands += "route add default dev eth0\nroute del default\n";
  ip(commands + "route add default dev eth0");  // nobody runs the loop
  ASSERT_GT(NetworkNamespace::droppedNews(), 0);
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  ip("route del default");
  EXPECT_TRUE(becomes(reports, flagsOfNone));
  EXPECT_THAT(reports->flags, ElementsAre(flagsOfWifi, flagsOfNone));
}

// ---- Being scheduled

TEST_F(LinuxReachabilityChangesTest, UnschedulingStopsTheReports) {
  addLink("eth0");
  const auto reports = report(anywhere);
  ip("route add default dev eth0");
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  ip("route del default");  // the loop has not seen it yet
  EXPECT_TRUE(unschedule(anywhere));
  settle();
  EXPECT_THAT(reports->flags, ElementsAre(flagsOfWifi));
  EXPECT_FALSE(unschedule(anywhere)) << "it was not scheduled any more";
}

TEST_F(LinuxReachabilityChangesTest, ItListensOnlyWhileAHandleIsScheduled) {
  EXPECT_EQ(NetworkNamespace::listeners(), 0);
  const auto reports = report(anywhere);
  EXPECT_EQ(NetworkNamespace::listeners(), 1);
  report(anywhere);
  EXPECT_EQ(NetworkNamespace::listeners(), 1) << "scheduled twice is scheduled once";
  EXPECT_TRUE(unschedule(anywhere));
  EXPECT_EQ(NetworkNamespace::listeners(), 0);
  EXPECT_FALSE(unschedule(anywhere));
  report(anywhere);
  service.reset();
  EXPECT_EQ(NetworkNamespace::listeners(), 0);
}

TEST_F(LinuxReachabilityChangesTest, TheLoopSleepsForGoodWhileNothingChanges) {
  addLink("eth0");
  const auto reports = report(anywhere);
  ip("route add default dev eth0");
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  settle();
  while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
  }
  GMainContext *const context = g_main_context_default();
  gint priority = 0;
  gint timeout = 0;
  GPollFD polled;
  EXPECT_FALSE(g_main_context_prepare(context, &priority));
  g_main_context_query(context, priority, &timeout, &polled, 1);
  EXPECT_EQ(timeout, -1);
}

TEST_F(LinuxReachabilityChangesTest, AHandleIsNotScheduledOnALoopOfAnotherKind) {
  class OtherRunLoop : public RunLoop {
    void addTimer(const std::shared_ptr<RunLoopTimer> & /*timer*/, RunLoopMode /*mode*/) override {}
  };
  const auto schedule = [this](const std::shared_ptr<RunLoop> &loop) {
    return service->scheduleWithRunLoop(anywhere, loop, RunLoopMode::defaultMode);
  };
  EXPECT_FALSE(schedule(std::make_shared<OtherRunLoop>()));
  EXPECT_FALSE(schedule(nullptr));
}

TEST_F(LinuxReachabilityChangesTest, EveryLoopThatItIsScheduledOnReports) {
  addLink("eth0");
  const auto reports = report(anywhere);
  std::atomic<bool> isScheduled = false;
  std::vector<std::thread::id> reporters;
  reports->then = [&reporters] { reporters.push_back(std::this_thread::get_id()); };
  // The reports are kept without a lock: the main loop does not run until the other one has reported.
  std::thread other([&] {
    GMainContext *const context = g_main_context_new();
    g_main_context_push_thread_default(context);
    const auto loop = runLoops.currentRunLoop();
    EXPECT_TRUE(service->scheduleWithRunLoop(anywhere, loop, RunLoopMode::defaultMode));
    isScheduled = true;
    while (reports->flags.empty()) g_main_context_iteration(context, TRUE);
    EXPECT_TRUE(service->unscheduleFromRunLoop(anywhere, loop, RunLoopMode::defaultMode));
    EXPECT_FALSE(service->unscheduleFromRunLoop(anywhere, loop, RunLoopMode::defaultMode));
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
  });
  const auto otherThread = other.get_id();
  EXPECT_TRUE(eventually([&isScheduled] { return isScheduled.load(); }));
  ip("route add default dev eth0");
  other.join();
  EXPECT_TRUE(thread.runUntil([&] { return reports->flags.size() == 2; }));
  EXPECT_THAT(reporters, ElementsAre(otherThread, std::this_thread::get_id()));
  EXPECT_THAT(reports->flags, ElementsAre(flagsOfWifi, flagsOfWifi));
}

// ---- The callback

TEST_F(LinuxReachabilityChangesTest, TheLatestCallbackIsCalled) {
  addLink("eth0");
  const auto first = report(anywhere);
  const auto second = std::make_shared<Reports>();
  EXPECT_TRUE(service->setCallback(anywhere, &Reports::add, {0, second}));
  ip("route add default dev eth0");
  EXPECT_TRUE(becomes(second, flagsOfWifi));
  EXPECT_THAT(first->flags, IsEmpty());
}

TEST_F(LinuxReachabilityChangesTest, WithoutACallbackNothingIsCalled) {
  addLink("eth0");
  EXPECT_TRUE(service->scheduleWithRunLoop(anywhere, mainRunLoop, RunLoopMode::defaultMode));
  ip("route add default dev eth0");
  settle();
  EXPECT_TRUE(service->setCallback(anywhere, nullptr, {}));
  ip("route del default");
  settle();
}

TEST_F(LinuxReachabilityChangesTest, TheContextsInfoIsNotKeptAlive) {
  addLink("eth0");
  static bool wasGone = false;
  static int calls = 0;
  auto info = std::make_shared<Reports>();
  const NetworkReachabilityCallback callback = [](NetworkReachabilityRef, NetworkReachabilityFlags,
                                                  const std::weak_ptr<Object> &passed) {
    ++calls;
    wasGone = passed.expired();
  };
  EXPECT_TRUE(service->setCallback(anywhere, callback, {0, info}));
  EXPECT_TRUE(service->scheduleWithRunLoop(anywhere, mainRunLoop, RunLoopMode::defaultMode));
  info.reset();
  ip("route add default dev eth0");
  EXPECT_TRUE(thread.runUntil([] { return calls == 1; }));
  EXPECT_TRUE(wasGone);
}

TEST_F(LinuxReachabilityChangesTest, ACallbackThatThrowsIsReportedAndTheNextChangeIsToo) {
  addLink("eth0");
  const auto reports = report(anywhere);
  reports->then = [] { throw std::runtime_error("a callback's reason"); };
  testing::internal::CaptureStderr();
  ip("route add default dev eth0");
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  ip("route del default");
  EXPECT_TRUE(becomes(reports, flagsOfNone));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("a callback's reason"));
}

TEST_F(LinuxReachabilityChangesTest, ACallbackMayUnscheduleAndScheduleItsHandle) {
  addLink("eth0");
  const auto reports = report(anywhere);
  reports->then = [&] {
    EXPECT_TRUE(unschedule(anywhere));
    EXPECT_TRUE(service->scheduleWithRunLoop(anywhere, mainRunLoop, RunLoopMode::defaultMode));
    EXPECT_TRUE(service->setCallback(anywhere, &Reports::add, {0, reports}));
  };
  ip("route add default dev eth0");
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  reports->then = [&] { EXPECT_TRUE(unschedule(anywhere)); };
  ip("route del default");
  EXPECT_TRUE(becomes(reports, flagsOfNone));
  EXPECT_FALSE(unschedule(anywhere));
}

TEST_F(LinuxReachabilityChangesTest, AnyThreadsMayUseAHandleWhileTheNetworkChanges) {
  addLink("eth0");
  std::string commands;
  for (int i = 0; i < 300; ++i) commands += "route add default dev eth0\nroute del default\n";
  ChildProcess changes({"/sbin/ip", "-batch", "-"});
  changes.write(commands);
  changes.closeInput();
  const auto reports = std::make_shared<Reports>();
  std::atomic<int> running = 3;
  std::vector<std::thread> threads;
  for (int i = running; i > 0; --i) {
    threads.emplace_back([&] {
      for (int j = 0; j < 100; ++j) {
        service->setCallback(anywhere, &Reports::add, {0, reports});
        service->scheduleWithRunLoop(anywhere, mainRunLoop, RunLoopMode::defaultMode);
        EXPECT_NE(flags(), std::nullopt);
        std::this_thread::yield();
        unschedule(anywhere);
      }
      --running;
      g_main_context_wakeup(nullptr);
    });
  }
  EXPECT_TRUE(thread.runUntil([&] { return running == 0; }));
  for (std::thread &other : threads) other.join();
  EXPECT_EQ(changes.exitCode(), 0);
  EXPECT_EQ(NetworkNamespace::listeners(), 0);
  const auto later = report(anywhere);
  ip("route add default dev eth0");
  EXPECT_TRUE(becomes(later, flagsOfWifi));
}

}  // namespace
}  // namespace kx
