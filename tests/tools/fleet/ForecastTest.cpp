#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "tools/fleet/Forecast.h"
#include "tools/fleet/ForecastPlot.h"

namespace kx::fleet {
namespace {

using testing::HasSubstr;
using testing::Not;

/// Two hours with ten logins and twenty messages each second; in the scenario that is disturbed, thirty
/// logins in the 100 s after the first hour, which is an outage of 60 s.
Forecast madeUp() {
  Forecast forecast;
  forecast.scenario.title = "A & B <";
  forecast.scenario.devices = 12'345;
  forecast.scenario.length = 7200;
  forecast.scenario.service.outages.push_back({3600, 60, true, FleetScenario::Outage::Of::everything});
  FleetSecond second;
  second.logins = 10;
  second.messages = 20;
  second.connections = 30;
  second.openRequests = 1.5F;
  second.openConnections = 2;
  second.reportsWithoutIdentifier = 5;
  forecast.ordinary.assign(7200, second);
  forecast.seconds = forecast.ordinary;
  for (std::size_t i = 3600; i < 3700; ++i) {
    forecast.seconds[i].logins = 30;
    forecast.seconds[i].loginsFailed = 25;
    forecast.seconds[i].messagesFailed = 4;
    forecast.seconds[i].messagesRefused = 2;
    forecast.seconds[i].reportsWithoutToken = 1;
  }
  forecast.seconds[3650].logins = 77;
  return forecast;
}

TEST(Forecast, TellsTheEffectOfADisturbance) {
  const Forecast forecast = madeUp();
  const auto disturbances = disturbancesOf(forecast.scenario);
  ASSERT_EQ(disturbances.size(), 1u);
  const Effect effect =
      effectOf(forecast, disturbances[0], [](const FleetSecond &second) { return second.logins; });
  EXPECT_EQ(effect.most, 77);
  EXPECT_EQ(effect.mostAt, 3650u);
  EXPECT_EQ(effect.ordinaryMost, 10);
  EXPECT_EQ(effect.aboveUntil, 3720u);
  EXPECT_EQ(effect.more, 99 * 20 + 67);
}

TEST(Forecast, DoesNotTakeALittleMoreForAnEffect) {
  Forecast forecast = madeUp();
  for (std::size_t i = 5000; i < 5600; ++i) forecast.seconds[i].logins = 11;
  const Effect effect = effectOf(forecast, disturbancesOf(forecast.scenario)[0],
                                 [](const FleetSecond &second) { return second.logins; });
  EXPECT_EQ(effect.aboveUntil, 3720u);
}

TEST(Forecast, LooksAtADisturbanceUntilTheNextOneBegins) {
  FleetScenario scenario;
  scenario.updates.push_back({1000, 60, 1});
  scenario.service.refusals = {500, 1000};
  scenario.service.outages.push_back({2000, 100, false, FleetScenario::Outage::Of::logins});
  const auto all = disturbancesOf(scenario);
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(all[0].what, "refusal of all tokens");
  EXPECT_EQ(all[0].until, 1000);
  EXPECT_EQ(all[1].what, "update");
  EXPECT_EQ(all[1].to, 1060);
  EXPECT_EQ(all[1].until, 2000);
  EXPECT_EQ(all[2].until, 2000);
  EXPECT_EQ(all[3].what, "outage of logins, which fails at once");
  EXPECT_EQ(all[3].until, 86'400);
}

TEST(Forecast, HoldsADisturbedDayAgainstTheSameDayWithoutIt) {
  FleetScenario scenario;
  scenario.devices = 300;
  scenario.length = 7200;
  scenario.before = 3600;
  EXPECT_TRUE(forecastOf(scenario).ordinary.empty());
  scenario.service.refusals = {3600};
  const Forecast forecast = forecastOf(scenario);
  ASSERT_EQ(forecast.ordinary.size(), 7200u);
  for (std::size_t i = 0; i < 3600; ++i) {
    ASSERT_EQ(forecast.seconds[i].messages, forecast.ordinary[i].messages);
    ASSERT_EQ(forecast.seconds[i].logins, forecast.ordinary[i].logins);
  }
  const auto effect = effectOf(forecast, disturbancesOf(scenario)[0],
                               [](const FleetSecond &second) { return second.messagesRefused; });
  EXPECT_GT(effect.more, 0);
}

TEST(ForecastTable, HasTheDayAndItsDisturbances) {
  const std::string table = tableOf(madeUp());
  EXPECT_THAT(table, HasSubstr("A & B <\n12,345 devices, 02:00:00 from 00:00 UTC, seed 1\n"));
  EXPECT_THAT(table, testing::ContainsRegex("logins +74,047 +10 +77 +01:00:50 +13\n"));
  EXPECT_THAT(table, testing::ContainsRegex("logins that fail +2,500 +0.3 +25 +01:00:00 +4.2\n"));
  EXPECT_THAT(table, testing::ContainsRegex("messages +144,000 +20 +20 +00:00:00 +20\n"));
  EXPECT_THAT(table, testing::ContainsRegex("open requests +1.5 +1.5 +00:00:00 +1.5\n"));
  EXPECT_THAT(table, testing::ContainsRegex("open connections +2.0 +2.0"));
  // 74,047 logins of 700 bytes, 144,000 messages of 1000, 216,000 connections of 900.
  EXPECT_THAT(table, testing::ContainsRegex("kB to the service +390,233 "));
  EXPECT_THAT(table, testing::ContainsRegex("kB from the service +832,316 "));
  EXPECT_THAT(table, testing::ContainsRegex("made +144,100 +100.00 %\n"));
  EXPECT_THAT(table, testing::ContainsRegex("arrived +143,400 +99.51 %\n"));
  EXPECT_THAT(table, testing::ContainsRegex("no token +100 +0.07 %\n"));
  EXPECT_THAT(table, testing::ContainsRegex("token was refused +200 +0.14 %\n"));
  EXPECT_THAT(table, testing::ContainsRegex("service failed +400 +0.28 %\n"));
  EXPECT_THAT(table, testing::ContainsRegex("send none\n  made +36,000 "));
  EXPECT_THAT(table, HasSubstr("\n01:00:00 to 01:01:00, outage of everything, which is not answered\n"));
  EXPECT_THAT(table,
              testing::ContainsRegex(
                  "logins/s +at most 77 at 01:00:50 .ordinary 10., more than ordinary until 01:02:00\n"));
  EXPECT_THAT(table, testing::ContainsRegex("messages/s +at most 20 at 01:00:00 .ordinary 20.\n"));
  EXPECT_THAT(table, HasSubstr("reports lost for ever: 700 more than ordinary\n"));
}

TEST(ForecastCSV, HasALineForEachStep) {
  const std::string csv = csvOf(madeUp(), 1800);
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 5);
  EXPECT_THAT(csv, testing::StartsWith("time,logins,loginsFailed,"));
  EXPECT_THAT(csv, HasSubstr("\n00:30:00,18000,0,36000,0,0,0,9000,54000,1.50,2.00,97200000,"));
  EXPECT_THAT(csv, HasSubstr("\n01:00:00,20047,2500,36000,200,400,100,9000,54000,1.50,2.00,"));
  EXPECT_THAT(csv, HasSubstr(",18000,36000\n"));
  EXPECT_EQ(std::count(csv.begin(), csv.end(), ','), 5 * 14);
}

TEST(ForecastCSV, EndsWithAShorterStep) {
  const std::string csv = csvOf(madeUp(), 7000);
  EXPECT_THAT(csv, HasSubstr("\n01:56:40,2000,0,4000,"));
}

TEST(ForecastPlot, DrawsWhatHappens) {
  const std::string svg = plotOf(madeUp(), 0, 7200);
  EXPECT_EQ(svg.rfind("<svg ", 0), 0u);
  EXPECT_THAT(svg, HasSubstr("A &amp; B &lt;: 12,345 devices"));
  EXPECT_THAT(svg, HasSubstr("class=\"trouble\" x=\"478.0\""));  // half-way
  EXPECT_THAT(svg, HasSubstr(">01:30</text>"));
  EXPECT_THAT(svg, HasSubstr(">80</text>"));  // above 77
  EXPECT_THAT(svg, HasSubstr("class=\"ordinary\""));
  EXPECT_THAT(svg, Not(HasSubstr("nan")));
}

TEST(ForecastPlot, DrawsAPart) {
  const std::string svg = plotOf(madeUp(), 3000, 3030);
  EXPECT_THAT(svg, HasSubstr(">00:50:05</text>"));
  EXPECT_THAT(svg, Not(HasSubstr("class=\"trouble\"")));
  Forecast ordinary = madeUp();
  ordinary.seconds = std::exchange(ordinary.ordinary, {});
  EXPECT_THAT(plotOf(ordinary, 0, 7200), Not(HasSubstr("class=\"ordinary\"")));
}

TEST(NumberText, GroupsAndRounds) {
  EXPECT_EQ(numberText(0), "0");
  EXPECT_EQ(numberText(1.25), "1.2");
  EXPECT_EQ(numberText(9.96), "10");
  EXPECT_EQ(numberText(99.4), "99");
  EXPECT_EQ(numberText(999), "999");
  EXPECT_EQ(numberText(1000), "1,000");
  EXPECT_EQ(numberText(-1234567), "-1,234,567");
  EXPECT_EQ(numberText(-123), "-123");
}

}  // namespace
}  // namespace kx::fleet
