#include <gtest/gtest.h>

#include <cmath>

#include "tools/fleet/Fleet.h"

namespace kx::fleet {
namespace {

/// A fleet of devices each of which is used all the time, from one start on.
FleetScenario busyFleet(std::uint32_t devices) {
  FleetScenario scenario;
  scenario.devices = devices;
  scenario.length = 7200;
  scenario.before = 0;
  scenario.use.sessionsPerDay = 1000;
  scenario.use.hours.fill(1);
  scenario.use.sessionLength = Quantiles(86'400);
  scenario.use.withoutIdentifier = 0;
  scenario.service.latency = Quantiles(0.25);
  return scenario;
}

template <class Value>
double sum(const std::vector<FleetSecond> &seconds, Value FleetSecond::*member) {
  double all = 0;
  for (const FleetSecond &second : seconds) all += static_cast<double>(second.*member);
  return all;
}

std::size_t firstSecondWith(const std::vector<FleetSecond> &seconds, std::uint32_t FleetSecond::*member) {
  for (std::size_t i = 0; i < seconds.size(); ++i) {
    if (seconds[i].*member != 0) return i;
  }
  return seconds.size();
}

TEST(Fleet, LogsInOnceAndReportsEveryTenMinutes) {
  const auto seconds = Fleet(busyFleet(1)).live();
  ASSERT_EQ(seconds.size(), 7200u);
  EXPECT_EQ(sum(seconds, &FleetSecond::logins), 1);
  const std::size_t start = firstSecondWith(seconds, &FleetSecond::logins);
  ASSERT_LT(start, 600u);
  EXPECT_EQ(firstSecondWith(seconds, &FleetSecond::messages), start + 5);
  EXPECT_EQ(sum(seconds, &FleetSecond::messages), 1 + (7200 - start - 1) / 600);
  EXPECT_EQ(sum(seconds, &FleetSecond::connections), sum(seconds, &FleetSecond::messages) + 1);
}

TEST(Fleet, CountsWhatIsOpen) {
  const auto seconds = Fleet(busyFleet(100)).live();
  const double requests = sum(seconds, &FleetSecond::logins) + sum(seconds, &FleetSecond::messages);
  EXPECT_NEAR(sum(seconds, &FleetSecond::openRequests), requests * 0.25, 0.5);
  EXPECT_NEAR(sum(seconds, &FleetSecond::openConnections), requests * 0.25, 0.5);
}

TEST(Fleet, KeepsConnectionsAsLongAsItIsTold) {
  FleetScenario scenario = busyFleet(100);
  scenario.connectionKept = 30;  // the first report comes in time for it
  const auto seconds = Fleet(scenario).live();
  EXPECT_EQ(sum(seconds, &FleetSecond::connections), sum(seconds, &FleetSecond::messages));
  const double open = 100 * (5.25 + 30) + (sum(seconds, &FleetSecond::messages) - 100) * 30.25;
  EXPECT_NEAR(sum(seconds, &FleetSecond::openConnections), open, 100 * 30.25);
  scenario.connectionKept = 700;  // and every one
  EXPECT_EQ(sum(Fleet(scenario).live(), &FleetSecond::connections), 100);
}

TEST(Fleet, SendsNothingWithoutAnIdentifierButItsLogin) {
  FleetScenario scenario = busyFleet(1000);
  scenario.use.withoutIdentifier = 0.25;
  const auto seconds = Fleet(scenario).live();
  EXPECT_EQ(sum(seconds, &FleetSecond::logins), 1000);
  const double sent = sum(seconds, &FleetSecond::messages);
  const double notSent = sum(seconds, &FleetSecond::reportsWithoutIdentifier);
  EXPECT_NEAR(notSent / (sent + notSent), 0.25, 0.05);
}

TEST(Fleet, LosesWhatItReportsWithoutATokenAndLogsInAgain) {
  FleetScenario scenario = busyFleet(500);
  scenario.service.outages.push_back({0, 3600, false, FleetScenario::Outage::Of::logins});
  const auto seconds = Fleet(scenario).live();
  // At once, after 300 s, after 600 s more, after 1200 s more, and the one that succeeds after 2400 s more.
  EXPECT_EQ(sum(seconds, &FleetSecond::logins), 500 * 5);
  EXPECT_EQ(sum(seconds, &FleetSecond::loginsFailed), 500 * 4);
  EXPECT_GT(sum(seconds, &FleetSecond::reportsWithoutToken), 500 * 7);
  EXPECT_EQ(sum(seconds, &FleetSecond::messagesFailed), 0);
}

TEST(Fleet, LogsInAgainWhereTokensAreRefused) {
  FleetScenario scenario = busyFleet(500);
  scenario.service.refusals = {3600};
  const auto seconds = Fleet(scenario).live();
  EXPECT_EQ(sum(seconds, &FleetSecond::messagesRefused), 500);
  EXPECT_EQ(sum(seconds, &FleetSecond::logins), 1000);
}

TEST(Fleet, CountsFailuresOfAnOutage) {
  FleetScenario scenario = busyFleet(500);
  scenario.service.outages.push_back({3600, 600, false, FleetScenario::Outage::Of::messages});
  EXPECT_EQ(sum(Fleet(scenario).live(), &FleetSecond::messagesFailed), 500);
}

TEST(Fleet, StartsAnewWithAnUpdate) {
  FleetScenario scenario = busyFleet(1000);
  scenario.updates.push_back({3300, 60, 0.5});  // few have a report due then: most have started by 300
  const auto seconds = Fleet(scenario).live();
  double during = 0;
  double half = 0;
  for (std::size_t i = 3300; i < 3360; ++i) {
    during += seconds[i].logins;
    if (i < 3330) half = during;
  }
  EXPECT_NEAR(during, 500, 60);
  EXPECT_NEAR(half, during / 2, 60) << "it does not reach them one after the other";
  EXPECT_EQ(sum(seconds, &FleetSecond::logins), 1000 + during);
  // Those that have started anew report 5 s later, and no longer when they would have.
  double reports = 0;
  for (std::size_t i = 3300; i < 3900; ++i) reports += seconds[i].messages;
  EXPECT_NEAR(reports, 1000, 30);
}

TEST(Fleet, IsUsedAsItsUsersUseIt) {
  FleetScenario scenario = busyFleet(2000);
  scenario.length = 86'400;
  scenario.before = 43'200;
  scenario.use.sessionsPerDay = 4;
  scenario.use.sessionLength = Quantiles(60);
  scenario.use.newProcess = 0.5;
  const auto seconds = Fleet(scenario).live();
  const double sessions = sum(seconds, &FleetSecond::messages) / 2;  // after 5 s, and as it leaves
  EXPECT_NEAR(sessions / 2000, 4, 0.2);
  EXPECT_NEAR(sum(seconds, &FleetSecond::logins) / sessions, 0.5, 0.05);
}

TEST(Fleet, DoesNothingWhileItIsSuspended) {
  FleetScenario scenario = busyFleet(200);
  scenario.length = 14'400;
  scenario.use.hours.fill(0);
  scenario.use.hours[0] = 1;  // so there is one session
  scenario.use.sessionLength = Quantiles(3700);
  scenario.service.outages.push_back({0, 14'400, false, FleetScenario::Outage::Of::logins});
  // At its start, and 300, 900 and 2100 s later.
  EXPECT_EQ(sum(Fleet(scenario).live(), &FleetSecond::logins), 200 * 4);
  // And after 4500, 8100 and 11,700 s.
  scenario.use.suspendedAfter = 86'400;
  EXPECT_EQ(sum(Fleet(scenario).live(), &FleetSecond::logins), 200 * 7);
}

TEST(Fleet, DoesNotComeBackBeforeItIsSuspended) {
  FleetScenario scenario = busyFleet(100);
  scenario.use.sessionLength = Quantiles(60);
  scenario.use.suspendedAfter = 600;
  scenario.use.newProcess = 0;
  const double most = 7200 / 660 + 1;  // sessions
  const double messages = sum(Fleet(scenario).live(), &FleetSecond::messages);
  EXPECT_LE(messages, 100 * 2 * most);
  EXPECT_GT(messages, 100 * most);
}

TEST(Fleet, HasTheSameForecastEachTime) {
  FleetScenario scenario = busyFleet(100);
  scenario.use.sessionLength = Quantiles({{0, 1}, {1, 100}});
  const auto first = Fleet(scenario).live();
  const auto second = Fleet(scenario).live();
  scenario.seed = 2;
  const auto other = Fleet(scenario).live();
  bool differs = false;
  for (std::size_t i = 0; i < first.size(); ++i) {
    ASSERT_EQ(first[i].messages, second[i].messages);
    ASSERT_EQ(first[i].openRequests, second[i].openRequests);
    differs = differs || first[i].messages != other[i].messages;
  }
  EXPECT_TRUE(differs);
}

// ---- Users

TEST(FleetUsers, UseItByTheHoursOfTheirZones) {
  FleetScenario::Use use;
  use.sessionsPerDay = 1;
  use.hours.fill(0);
  use.hours[8] = 1;
  use.hours[20] = 3;
  use.zones = {{0.75, 0}, {0.25, 2}};
  constexpr Time begins = 43'200'000;
  const FleetUsers users(use, 1, begins);
  int morning = 0;
  int ahead = 0;
  constexpr int count = 4000;
  for (std::uint32_t device = 0; device < count; ++device) {
    const Time next = users.nextSession(device, 0, begins - 1000);
    const double hour = std::fmod((next - begins) / 3'600'000.0 + 24, 24);
    const bool isAhead = (hour >= 6 && hour < 7) || (hour >= 18 && hour < 19);
    ahead += isAhead ? 1 : 0;
    const double local = std::fmod(hour + (isAhead ? 2 : 0), 24);
    EXPECT_TRUE((local >= 8 && local < 9) || (local >= 20 && local < 21)) << local;
    if (next < begins + 86'400'000 && local < 9) ++morning;
  }
  EXPECT_NEAR(ahead, count / 4, count / 40);
  EXPECT_NEAR(morning, count * (1 - std::exp(-0.25)), count / 40);  // of a rate of a quarter
}

// ---- Seconds

TEST(FleetTimeline, TellsForHowMuchOfASecondSomethingIsOpen) {
  FleetTimeline timeline(10'000, 4);
  timeline.requestIsOpen(9000, 1500);    // half of the first
  timeline.requestIsOpen(10'250, 250);   // a quarter of it
  timeline.requestIsOpen(11'500, 2000);  // half of the second, the third, half of the fourth
  timeline.requestIsOpen(13'000, 9000);  // the fourth, and on
  timeline.requestIsOpen(8000, 2000);    // before
  timeline.requestIsOpen(14'000, 2000);  // after
  const auto seconds = timeline.seconds();
  ASSERT_EQ(seconds.size(), 4u);
  EXPECT_FLOAT_EQ(seconds[0].openRequests, 0.75F);
  EXPECT_FLOAT_EQ(seconds[1].openRequests, 0.5F);
  EXPECT_FLOAT_EQ(seconds[2].openRequests, 1);
  EXPECT_FLOAT_EQ(seconds[3].openRequests, 1.5F);
  EXPECT_FLOAT_EQ(seconds[3].openConnections, 0);
}

TEST(FleetTimeline, CountsNothingElsewhere) {
  FleetTimeline timeline(10'000, 2);
  ++timeline.at(9999).logins;
  ++timeline.at(12'000).logins;
  ++timeline.at(11'999).messages;
  const auto seconds = timeline.seconds();
  EXPECT_EQ(seconds[0].logins + seconds[1].logins, 0u);
  EXPECT_EQ(seconds[1].messages, 1u);
}

}  // namespace
}  // namespace kx::fleet
