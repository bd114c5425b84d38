#include <gtest/gtest.h>

#include <KXPublisher/KXPublisher.hpp>
#include <set>

#include "KXPublisher/platform/simulated/SimulatedPlatform.h"
#include "KXPublisher/platform/simulated/SimulatedScope.h"

// What the device as a whole does, with the library on it.

namespace kx {
namespace {

class SimulatedPlatformTest : public ::testing::Test {
 protected:
  void start() { KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com"); }
  std::size_t arrived() const { return device.service.messages().size(); }

  SimulatedScope scope;
  SimulatedPlatform &device = scope.device;
};

TEST_F(SimulatedPlatformTest, FailsRequestsWhileThereIsNoNetwork) {
  start();
  device.advance(100);
  device.reachability.changeFlags(0);
  device.advance(600);
  EXPECT_EQ(arrived(), 1u);
  ASSERT_FALSE(device.consoleService.lines.empty());
  EXPECT_NE(device.consoleService.lines[0].find("Code=-1009"), std::string::npos);
  device.reachability.changeFlags(networkReachabilityFlagsReachable);
  device.advance(600);
  EXPECT_EQ(arrived(), 2u);
}

TEST_F(SimulatedPlatformTest, FailsRequestsThatAreUnderWayWhenTheNetworkIsLost) {
  device.service.latency = 30;
  start();
  device.advance(10);
  EXPECT_EQ(device.counts().requests, 1u);
  device.reachability.changeFlags(0);
  device.runUntilIdle();
  EXPECT_EQ(device.counts().requests, 0u);
  ASSERT_EQ(device.consoleService.lines.size(), 1u);
  EXPECT_NE(device.consoleService.lines[0].find("Code=-1005"), std::string::npos);
}

TEST_F(SimulatedPlatformTest, TakesFlagsThatCannotBeReadForANetwork) {
  device.reachability.changeFlags(std::nullopt);
  start();
  device.advance(10);
  EXPECT_EQ(arrived(), 1u);
}

TEST_F(SimulatedPlatformTest, SleepsWithItsClockGoingOnAndNothingElse) {
  start();
  device.advance(100);
  const double clock = device.clockService.timeIntervalSince1970();
  device.sleep(10'000);
  EXPECT_EQ(device.clockService.timeIntervalSince1970(), clock + 10'000);
  EXPECT_EQ(device.scheduler.uptime(), 100);
  device.advance(499);
  EXPECT_EQ(arrived(), 1u);
  device.advance(1);
  EXPECT_EQ(arrived(), 2u);
  EXPECT_THROW(device.sleep(-1), std::invalid_argument);
}

TEST_F(SimulatedPlatformTest, LosesItsConnectionsWhileItSleeps) {
  device.service.latency = 30;
  start();
  device.advance(1);
  device.sleep(1);
  device.advance(1);
  ASSERT_EQ(device.consoleService.lines.size(), 1u);
  EXPECT_NE(device.consoleService.lines[0].find("Code=-1005"), std::string::npos);
}

TEST_F(SimulatedPlatformTest, RunsNothingWhileItIsSuspendedAndMakesUpForNoTimer) {
  start();
  device.advance(100);
  device.suspend();
  device.advance(3000);
  EXPECT_EQ(arrived(), 1u);
  device.resume();
  device.advance(0);
  EXPECT_EQ(arrived(), 2u);  // of the five that were due
  device.advance(600);
  EXPECT_EQ(arrived(), 3u);
}

TEST_F(SimulatedPlatformTest, TellsManagersOfWaysThatAreAsLongAsTheirFilter) {
  device.locationService.position = Location{{52.5, 13.4}, 5, 34, 5};
  start();
  device.advance(1);
  EXPECT_EQ(device.locationService.distanceFilter, 10);
  const auto geocodedAfter = [this](double latitude) {
    device.locationService.moveTo(Location{{latitude, 13.4}, 5, 34, 5});
    device.advance(1);
    return device.locationService.geocoded.size();
  };
  const std::size_t before = geocodedAfter(52.5);  // the first one is always told
  EXPECT_EQ(geocodedAfter(52.50005), before);      // 6 m
  EXPECT_EQ(geocodedAfter(52.50008), before);      // 9 m from where it was told
  EXPECT_EQ(geocodedAfter(52.5001), before + 1);   // 11 m
}

TEST_F(SimulatedPlatformTest, ServesOnlyCommonModesWhileTheUserDrags) {
  start();
  device.advance(1);
  device.runLoopService.setTracking(true);
  device.reachability.changeFlags(networkReachabilityFlagsReachable | networkReachabilityFlagsIsWWAN);
  device.advance(599);
  EXPECT_EQ(arrived(), 2u);  // the reports' timers are in common modes ...
  EXPECT_NE(device.service.messages().back().text()->find("WIFI"), std::string::npos);  // ... this is not
  device.runLoopService.setTracking(false);
  device.advance(600);
  EXPECT_NE(device.service.messages().back().text()->find("CELLULAR"), std::string::npos);
}

TEST_F(SimulatedPlatformTest, AnswersAsByItselfWhereATestSaysNothingElse) {
  int asked = 0;
  device.service.respond = [&](const SimulatedRequest &request) {
    ++asked;
    SimulatedReply reply = device.service.defaultReply(request);
    reply.latency = 2;
    return reply;
  };
  start();
  device.advance(1.9);
  EXPECT_EQ(KXPublisher::diagnosis().login, KXDiagnosis::Login::underWay);
  device.advance(0.2);
  EXPECT_EQ(KXPublisher::diagnosis().login, KXDiagnosis::Login::succeeded);
  device.advance(10);
  EXPECT_EQ(KXPublisher::diagnosis().messagesAccepted, 1u);
  EXPECT_EQ(asked, 2);
}

TEST_F(SimulatedPlatformTest, KeepsOnlyTheLatestRequestsWhenTold) {
  device.service.mostRequests = 3;
  start();
  device.advance(6000);
  ASSERT_EQ(device.service.requests.size(), 3u);
  EXPECT_EQ(device.service.requests.back().time, 6000);
}

/// A clock that stands still.
class StoppedClock : public Clock {
 public:
  double timeIntervalSince1970() override { return 1234567890; }
};

TEST_F(SimulatedPlatformTest, TakesServicesOfTheTestsOwn) {
  device.replaced.clock = std::make_shared<StoppedClock>();
  start();
  device.advance(5);
  const auto text = device.service.messages().at(0).text().value_or("");
  EXPECT_NE(text.find("\"eventTime\":1234567890000"), std::string::npos);
}

TEST_F(SimulatedPlatformTest, CountsWhatThereIs) {
  start();
  device.advance(10);
  const auto counts = device.counts();
  EXPECT_EQ(counts.readyTasks, 0u);
  EXPECT_EQ(counts.begunTasks, 0u);
  EXPECT_EQ(counts.timers, 1u);
  EXPECT_EQ(counts.laterTasks, 1u);
  EXPECT_GT(counts.registrations, 0u);
  EXPECT_EQ(counts.sessions, 0u);
  EXPECT_EQ(counts.requests, 0u);
  EXPECT_EQ(counts.backgroundTasks, 0u);
  EXPECT_EQ(counts.telephonyObjects, 1u);
  device.application->beginBackgroundTaskWithName("task", nullptr);
  EXPECT_EQ(device.counts().backgroundTasks, 1u);
}

TEST_F(SimulatedPlatformTest, GrowsByNothingFromDayToDay) {
  start();
  const auto day = [this] {
    for (int i = 0; i < 12; ++i) {
      device.advance(3600);
      device.application->enterBackground();
      device.advance(3600);
      device.application->enterForeground();
      device.telephonyService.changeCarrier(SimulatedCarrier{"262", "01"});
      device.locationService.moveTo(Location{{50.0 + i, 13.4}, 5, 34, 5});
    }
    device.advance(10);
    const auto counts = device.counts();
    return std::vector<std::size_t>{counts.timers,   counts.laterTasks,      counts.registrations,
                                    counts.sessions, counts.backgroundTasks, counts.telephonyObjects};
  };
  const auto first = day();
  for (int i = 0; i < 200; ++i) ASSERT_EQ(day(), first);
  EXPECT_LE(device.application->backgroundTasks.size(), 1001u);
  EXPECT_LE(device.application->endedIdentifiers.size(), 1001u);
  EXPECT_LE(device.locationService.geocoded.size(), 1000u);
  EXPECT_LE(device.scheduler.workers(), 8u);
}

TEST_F(SimulatedPlatformTest, EndsAnyBackgroundTaskThoughOldOnesAreForgotten) {
  SimulatedApplication &application = *device.application;
  const auto kept = application.beginBackgroundTaskWithName("kept", nullptr);
  for (int i = 0; i < 3000; ++i) {
    application.endBackgroundTask(application.beginBackgroundTaskWithName("short", nullptr));
  }
  EXPECT_EQ(application.openBackgroundTasks(), 1u);
  application.endBackgroundTask(kept);
  const auto last = application.beginBackgroundTaskWithName("last", nullptr);
  EXPECT_EQ(application.openBackgroundTasks(), 1u);
  application.endBackgroundTask(kept);
  EXPECT_EQ(application.openBackgroundTasks(), 1u);
  application.endBackgroundTask(last);
  EXPECT_EQ(application.openBackgroundTasks(), 0u);
}

TEST_F(SimulatedPlatformTest, RecordsWhatHappened) {
  start();
  device.advance(4);
  EXPECT_TRUE(device.trace().empty());
  device.scheduler.trace.recording = true;
  device.advance(2);
  const std::string text = device.trace();
  EXPECT_NE(text.find("       5.000  main       timer fires: logData:\n"), std::string::npos) << text;
  EXPECT_NE(text.find("5.000  worker 1   request https://collect.example.com/api_v0_0_0/post_msg\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("5.100  worker 1   answer arrives\n"), std::string::npos) << text;
  const std::string picture = device.scheduler.trace.svg();
  EXPECT_EQ(picture.rfind("<svg ", 0), 0u);
  EXPECT_NE(picture.find("worker 1"), std::string::npos);
  EXPECT_NE(picture.find("<line "), std::string::npos);
  EXPECT_NE(picture.find("<rect "), std::string::npos);
}

TEST(SimulatedTrace, IsTheSameForTheSameSeedAndAnotherForOthers) {
  std::set<std::string> traces;
  for (const std::uint64_t seed : {1U, 2U, 3U, 1U}) {
    SimulatedScope scope(seed);
    scope.device.scheduler.trace.recording = true;
    KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
    scope.device.advance(10);
    traces.insert(scope.device.trace());
  }
  EXPECT_EQ(traces.size(), 3u);
}

TEST(SimulatedTrace, KeepsTheLatestEventsAndEscapesWhatThePictureSays) {
  SimulatedTrace trace;
  trace.limit = 3;
  for (int i = 0; i < 10; ++i) {
    trace.add({0, 0, SimulatedTrace::Kind::says, 0, std::to_string(i) + " <&>"});
  }
  ASSERT_EQ(trace.events().size(), 3u);
  EXPECT_EQ(trace.events().front().what, "7 <&>");
  EXPECT_NE(trace.svg().find("7 &lt;&amp;>"), std::string::npos);
}

}  // namespace
}  // namespace kx
