#include <KXPublisher/KXPublisher.hpp>
#include <vector>

#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

using Times = std::vector<double>;

class KXPublisherCadenceTest : public SimulatedTest {
 protected:
  SimulatedApplication &application = *device.application;

  void SetUp() override { KXPublisher::sharedInstanceWithApiToken("token", "svc"); }

  /// When the reports were sent, in seconds after the start.
  Times times() const {
    Times sent;
    for (const auto &message : device.service.messages()) sent.push_back(message.time);
    return sent;
  }
};

TEST_F(KXPublisherCadenceTest, ReportsAfterFiveSecondsAndEveryTenMinutesCountedFromTheStart) {
  device.advance(1800);
  EXPECT_EQ(times(), (Times{5, 600, 1200, 1800}));
}

TEST_F(KXPublisherCadenceTest, ReportsOnEntryIntoTheBackgroundAndNotInIt) {
  device.advance(100);
  application.enterBackground();
  device.advance(86400);
  EXPECT_EQ(times(), (Times{5, 100}));
}

TEST_F(KXPublisherCadenceTest, ReportsAfterTheReturnAndEveryTenMinutesCountedFromIt) {
  device.advance(100);
  application.enterBackground();
  device.advance(900);
  application.enterForeground();
  device.advance(1300);
  EXPECT_EQ(times(), (Times{5, 100, 1005, 1600, 2200}));
}

TEST_F(KXPublisherCadenceTest, MakesThePendingFirstReportEvenInTheBackground) {
  device.advance(2);
  application.enterBackground();
  device.advance(86400);
  EXPECT_EQ(times(), (Times{2, 5}));
}

TEST_F(KXPublisherCadenceTest, MakesThePendingReportOfAShortReturnEvenInTheBackground) {
  device.advance(100);
  application.enterBackground();
  device.advance(100);
  application.enterForeground();
  device.advance(1);
  application.enterBackground();
  device.advance(1000);
  EXPECT_EQ(times(), (Times{5, 100, 201, 205}));
}

TEST_F(KXPublisherCadenceTest, AddsOneEarlyReportForEachReturnButNoSecondRepeatingOne) {
  device.advance(100);
  application.enterForeground();
  device.advance(1);
  application.enterForeground();
  device.advance(1299);
  EXPECT_EQ(times(), (Times{5, 105, 106, 701, 1301}));
}

TEST_F(KXPublisherCadenceTest, MakesExactlyThePrescribedReportsInADay) {
  // Phases in the foreground and in the background, in seconds, in turn; together one day.
  const std::vector<double> phases{1000, 3600, 3, 30, 650, 20000, 7200, 1, 1, 5, 18000, 86400.0 - 50490.0};
  Times expected;
  double now = 0;
  bool foreground = true;
  for (const double phase : phases) {
    if (foreground) {
      expected.push_back(now + 5);  // also when the phase is shorter: it is made in the background then
      for (double report = 600; report <= phase; report += 600) expected.push_back(now + report);
    }
    now += phase;
    if (foreground) expected.push_back(now);
    foreground = !foreground;
  }
  ASSERT_EQ(now, 86400);
  expected.erase(std::remove_if(expected.begin(), expected.end(), [](double time) { return time > 86400; }),
                 expected.end());
  std::sort(expected.begin(), expected.end());

  foreground = true;
  for (const double phase : phases) {
    device.advance(phase);
    if (foreground) {
      application.enterBackground();
    } else {
      application.enterForeground();
    }
    foreground = !foreground;
  }
  device.runReadyTasks();
  Times actual = times();
  std::sort(actual.begin(), actual.end());
  EXPECT_EQ(actual, expected);
  EXPECT_EQ(device.service.logins().size(), 1u);
  EXPECT_TRUE(device.consoleService.lines.empty());
}

TEST_F(KXPublisherCadenceTest, IsNotShiftedByChangesOfTheClock) {
  device.advance(100);
  device.clockService.atSwitchOn += 86400;
  device.advance(300);
  device.clockService.atSwitchOn -= 5 * 86400;
  device.advance(900);
  EXPECT_EQ(times(), (Times{5, 600, 1200}));
}

}  // namespace
}  // namespace kx
