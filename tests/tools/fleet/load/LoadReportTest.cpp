#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tools/fleet/LoadReport.h"

namespace kx::fleet {
namespace {

using testing::HasSubstr;

class LoadReportTest : public testing::Test {
 protected:
  LoadReportTest() {
    report.title = "A day";
    report.devices = 1234;
    report.services = {"https://localhost:1"};
    report.from = 19 * 3600;
    report.length = 10;
    for (int i = 0; i < 100; ++i) {
      statistics.isPlanned(Endpoint::message, 0.5);
      statistics.isSent(Endpoint::message, 0.5, 0.001);
    }
    for (int i = 0; i < 100; ++i)
      statistics.isAnswered(Endpoint::message, 1.5, i < 98 ? 200 : 503, i == 99 ? 2 : 0.1);
    statistics.isPlanned(Endpoint::login, 2.5);
    statistics.isSent(Endpoint::login, 2.5, 0.002);
    statistics.isNotAnswered(Endpoint::login, 2.5, "refused");
    statistics.isPlanned(Endpoint::login, 2.5);
    statistics.isShed(Endpoint::login, 2.5, true);
    statistics.isPlanned(Endpoint::message, 2.5);
    statistics.isShed(Endpoint::message, 2.5, false);
    statistics.reportIsLost(Lost::noToken);
    statistics.reportIsLost(Lost::noIdentifier);
    statistics.reportIsLost(Lost::noIdentifier);
  }

  bool isBoundKept(const char *text) const { return isKept(report, LoadThreshold::from(text)); }

  LoadReport report;
  LoadStatistics &statistics = report.statistics;
};

TEST_F(LoadReportTest, TellsPeople) {
  report.thresholds = {LoadThreshold::from("message.p50=200ms"), LoadThreshold::from("errors=1%")};
  const std::string text = textOf(report);
  EXPECT_THAT(text, HasSubstr("1,234 devices, 10.0 s from 19:00:00 on, at 1 times their pace, against "
                              "https://localhost:1"));
  EXPECT_THAT(text,
              HasSubstr("message           101        100        100          2          1         10\n"));
  EXPECT_THAT(text,
              HasSubstr("login               2          1          0          1          1        0.1\n"));
  EXPECT_THAT(text, HasSubstr("2  status 503\n"));
  EXPECT_THAT(text, HasSubstr("1  refused\n"));
  EXPECT_THAT(text, HasSubstr("1  not sent: above the rate\n"));
  EXPECT_THAT(text, HasSubstr("1  not sent: no connection left\n"));
  EXPECT_THAT(text, HasSubstr("1 without a token, 2 without an identifier"));
  EXPECT_THAT(text, HasSubstr("message.p50=200ms: kept, "));
  EXPECT_THAT(text, HasSubstr("errors=1%: exceeded, 2.97 %"));
  EXPECT_THAT(text, testing::Not(HasSubstr("ended before its time")));
  report.wasEnded = true;
  EXPECT_THAT(textOf(report), HasSubstr("ended before its time"));
}

TEST_F(LoadReportTest, TellsPrograms) {
  report.thresholds = {LoadThreshold::from("errors=1%")};
  const auto json = nlohmann::json::parse(jsonOf(report));
  EXPECT_EQ(json["message"]["planned"], 101);
  EXPECT_EQ(json["message"]["statuses"]["503"], 2);
  EXPECT_EQ(json["login"]["problems"]["refused"], 1);
  EXPECT_EQ(json["login"]["latency"], nlohmann::json::object());
  EXPECT_NEAR(json["message"]["latency"]["p50"], 0.1, 0.002);
  EXPECT_EQ(json["message"]["latency"]["max"], 2);
  EXPECT_EQ(json["bounds"][0]["kept"], false);
  ASSERT_EQ(json["timeline"].size(), 3U);
  EXPECT_EQ(json["timeline"][0]["sent"], 100);
  EXPECT_EQ(json["timeline"][1]["answered"], 100);
  EXPECT_EQ(json["timeline"][1]["failed"], 2);
  EXPECT_EQ(json["timeline"][1]["max"], 2);
  EXPECT_NEAR(json["timeline"][1]["p50"], 0.1, 0.002);
  EXPECT_EQ(json["timeline"][2]["shed"], 2);
  EXPECT_EQ(json["timeline"][2]["max"], 0);
}

TEST_F(LoadReportTest, HasAPicture) {
  const std::string svg = plotOf(report);
  EXPECT_THAT(svg, HasSubstr(">A day: 1234 devices</text>"));
  for (const char *title : {"Requests sent", "Answers", "Requests failed or shed", "median", "99 of 100"})
    EXPECT_THAT(svg, HasSubstr(title));
  EXPECT_THAT(svg, HasSubstr(">150</text>")) << "above 101 milliseconds";
  EXPECT_THAT(plotOf(LoadReport()), testing::Not(HasSubstr("nan")));
}

TEST_F(LoadReportTest, KnowsWhichBoundsAreKept) {
  EXPECT_TRUE(isBoundKept("message.p90=110ms"));
  EXPECT_FALSE(isBoundKept("message.p90=90ms"));
  EXPECT_TRUE(isBoundKept("message.max=2s"));
  EXPECT_FALSE(isBoundKept("message.max=1999ms"));
  EXPECT_TRUE(isBoundKept("login.max=0s")) << "there is none";
  EXPECT_TRUE(isBoundKept("errors=3%"));
  EXPECT_FALSE(isBoundKept("errors=2.9%"));
  EXPECT_TRUE(isBoundKept("shed=2%"));
  EXPECT_FALSE(isBoundKept("shed=1.9%"));
}

}  // namespace
}  // namespace kx::fleet
