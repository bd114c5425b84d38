#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <thread>

#include "platform/linux/bus/Portal.h"
#include "platform/linux/bus/SessionBus.h"
#include "tests/platform/linux/network/ReachabilityTest.h"
#include "tests/platform/linux/network/RefusedSockets.h"
#include "tests/support/FakeService.h"

namespace kx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

constexpr const char *monitorInterface = "org.freedesktop.portal.NetworkMonitor";
constexpr SocketAddress zeroAddress{16, 2, 0, 0, 0, 0, 0, 0};

std::string status(const std::string &available) {
  return "({'available': <" + available + ">, 'metered': <false>, 'connectivity': <uint32 4>},)";
}

/// In a sandbox where the kernel tells nothing of the network. The test's main thread is one that it starts.
class PortalNetworkTest : public testing::Test {
 protected:
  PortalNetworkTest() { setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1); }

  void inTheSandbox(const std::function<void(const MainThread &thread)> &test) {
    std::thread([this, &test] {
      ASSERT_TRUE(refuseSockets(AF_NETLINK, EPERM));
      const MainThread thread;
      const auto loop = runLoops.linuxMainRunLoop();
      service = std::make_unique<LinuxReachability>(loop, std::make_shared<SystemBus>(loop, 1U),
                                                    std::make_shared<SessionBus>(loop, 1U));
      handle = service->createWithAddress(zeroAddress);
      EXPECT_TRUE(service->setCallback(handle, &Reports::add, {0, reports}));
      test(thread);
      service.reset();
    }).join();
  }
  auto flags() { return service->getFlags(handle); }
  /// And asks, as whoever follows a handle does.
  bool schedule() {
    const bool scheduled =
        service->scheduleWithRunLoop(handle, runLoops.mainRunLoop(), RunLoopMode::defaultMode);
    EXPECT_EQ(flags(), std::nullopt) << "the portal has not told yet";
    return scheduled;
  }
  bool unschedule() {
    return service->unscheduleFromRunLoop(handle, runLoops.mainRunLoop(), RunLoopMode::defaultMode);
  }
  bool becomes(const MainThread &thread, NetworkReachabilityFlags expected) {
    return thread.runUntil([&] { return !reports->flags.empty() && reports->flags.back() == expected; });
  }

  PrivateBus bus;
  FakeService portal{bus, portal::serviceName};
  LinuxRunLoopService runLoops;
  std::unique_ptr<LinuxReachability> service;
  NetworkReachabilityRef handle = nullptr;
  const std::shared_ptr<Reports> reports = std::make_shared<Reports>();
};

TEST_F(PortalNetworkTest, TellsWhetherThereIsAWayToAnywhere) {
  portal.answer("GetStatus", status("true"));
  portal.appear();
  inTheSandbox([this](const MainThread &thread) {
    EXPECT_EQ(flags(), std::nullopt) << "nobody has asked yet";
    EXPECT_TRUE(schedule());
    EXPECT_TRUE(becomes(thread, flagsOfWifi));
    EXPECT_THAT(flags(), Optional(flagsOfWifi));
    portal.answer("GetStatus", status("false"));
    portal.emit(portal::path, monitorInterface, "changed", "()");
    EXPECT_TRUE(becomes(thread, flagsOfNone));
    EXPECT_THAT(flags(), Optional(flagsOfNone));
    EXPECT_THAT(reports->flags, ElementsAre(flagsOfWifi, flagsOfNone));
  });
}

TEST_F(PortalNetworkTest, WithoutAPortalNothingIsKnownUntilThereIsOne) {
  portal.answer("GetStatus", status("true"));
  inTheSandbox([this](const MainThread &thread) {
    EXPECT_TRUE(schedule());
    for (int i = 0; i < 20; ++i) g_main_context_iteration(nullptr, FALSE);
    EXPECT_EQ(flags(), std::nullopt);
    EXPECT_THAT(reports->flags, IsEmpty());
    portal.appear();
    EXPECT_TRUE(becomes(thread, flagsOfWifi));
    portal.vanish();
    EXPECT_TRUE(becomes(thread, flagsOfNone));
    EXPECT_EQ(flags(), std::nullopt);
  });
}

TEST_F(PortalNetworkTest, APortalThatMakesNoSenseTellsNothing) {
  portal.answer("GetStatus", status("'yes'"));
  portal.appear();
  inTheSandbox([this](const MainThread &thread) {
    EXPECT_TRUE(schedule());
    EXPECT_TRUE(thread.runUntil([this] { return portal.calls("GetStatus") == 1; }));
    EXPECT_EQ(flags(), std::nullopt);
    portal.answer("GetStatus", status("true"));
    portal.emit(portal::path, monitorInterface, "changed", "()");
    EXPECT_TRUE(becomes(thread, flagsOfWifi));
  });
}

TEST_F(PortalNetworkTest, IsAskedOneQuestionAtATime) {
  portal.answer("GetStatus", status("true"));
  portal.appear();
  inTheSandbox([this](const MainThread &thread) {
    EXPECT_TRUE(schedule());
    EXPECT_TRUE(becomes(thread, flagsOfWifi));
    portal.answer("GetStatus", "");  // from now on it hangs
    for (int i = 0; i < 100; ++i) portal.emit(portal::path, monitorInterface, "changed", "()");
    portal.flush();
    EXPECT_TRUE(thread.runUntil([this] { return portal.calls("GetStatus") == 2; }));
    bool over = false;  // what would be asked beside
    OneShotTimer timer(g_main_context_default());
    timer.schedule(std::chrono::milliseconds(100), [&over] { over = true; });
    EXPECT_TRUE(thread.runUntil([&over] { return over; }));
    EXPECT_EQ(portal.calls("GetStatus"), 2);
  });
}

TEST_F(PortalNetworkTest, AChangeWhileItIsAskedIsAskedAbout) {
  // The answer is that of the moment before the change.
  portal.answer("GetStatus", [this](GDBusMessage *) {
    GVariant *const answer = FakeService::parsed(status("true"));
    portal.emit(portal::path, monitorInterface, "changed", "()");
    portal.answer("GetStatus", status("false"));
    return answer;
  });
  portal.appear();
  inTheSandbox([this](const MainThread &thread) {
    EXPECT_TRUE(schedule());
    EXPECT_TRUE(thread.runUntil([this] { return flags() == flagsOfNone; }));
    EXPECT_EQ(portal.calls("GetStatus"), 2);
  });
}

TEST_F(PortalNetworkTest, APortalThatComesBackIsAskedThoughTheOneBeforeHasNotAnswered) {
  portal.answer("GetStatus", "");  // it hangs
  portal.appear();
  inTheSandbox([this](const MainThread &thread) {
    EXPECT_TRUE(schedule());
    EXPECT_TRUE(thread.runUntil([this] { return portal.calls("GetStatus") == 1; }));
    portal.vanish();
    portal.answer("GetStatus", status("true"));
    portal.appear();
    EXPECT_TRUE(becomes(thread, flagsOfWifi));
  });
}

TEST_F(PortalNetworkTest, IsFollowedOnlyWhileAHandleIsScheduled) {
  portal.answer("GetStatus", status("true"));
  portal.appear();
  inTheSandbox([this](const MainThread &thread) {
    EXPECT_TRUE(schedule());
    EXPECT_TRUE(becomes(thread, flagsOfWifi));
    EXPECT_TRUE(unschedule());
    EXPECT_TRUE(thread.runUntil([this] { return !flags(); })) << "it follows it still";
    EXPECT_THAT(reports->flags, ElementsAre(flagsOfWifi));
  });
}

/// In a sandbox where the kernel tells all that there is to know.
class PortalBesideKernelTest : public ReachabilityTest {};

TEST_F(PortalBesideKernelTest, IsNotAsked) {
  const PrivateBus bus;
  setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
  FakeService portal(bus, portal::serviceName);
  portal.answer("GetStatus", status("false"));
  portal.appear();
  const auto loop = runLoops.linuxMainRunLoop();
  const auto sessionBus = std::make_shared<SessionBus>(loop, 1U);
  service = std::make_unique<LinuxReachability>(loop, systemBus, sessionBus);
  anywhere = service->createWithAddress(zeroAddress);
  addLink("eth0");
  ip("route add default dev eth0");
  const auto reports = report(anywhere);
  settle();
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  EXPECT_EQ(portal.calls(), 0);
}

}  // namespace
}  // namespace kx
