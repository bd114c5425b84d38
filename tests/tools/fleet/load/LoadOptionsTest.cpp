#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/fleet/LoadOptions.h"
#include "tools/fleet/ScenarioFile.h"

namespace kx::fleet {
namespace {

using testing::HasSubstr;

std::string complaintOf(std::vector<std::string> words) {
  words.insert(words.begin(), {"s.json", "--service", "https://localhost"});
  try {
    LoadOptions::of(words);
    return "";
  } catch (const ScenarioError &error) {
    return error.what();
  }
}

TEST(LoadOptionsTest, AreReadAsTheyAreGiven) {
  const LoadOptions options = LoadOptions::of({"s.json",
                                               "--service",
                                               "https://localhost:1",
                                               "--service",
                                               "https://localhost:2",
                                               "--really-load",
                                               "example.com",
                                               "--devices",
                                               "12",
                                               "--from",
                                               "19:00",
                                               "--pace",
                                               "2.5",
                                               "--rate",
                                               "7.5",
                                               "--connections",
                                               "9",
                                               "--duration",
                                               "2 min",
                                               "--max",
                                               "login.p99.9=200ms",
                                               "--max",
                                               "errors=0.1%"});
  EXPECT_EQ(options.scenario, "s.json");
  EXPECT_EQ(options.services, (std::vector<std::string>{"https://localhost:1", "https://localhost:2"}));
  EXPECT_EQ(options.reallyLoaded, std::vector<std::string>{"example.com"});
  EXPECT_EQ(options.devices, 12U);
  EXPECT_EQ(options.from, 19 * 3600);
  EXPECT_EQ(options.pace, 2.5);
  EXPECT_EQ(options.rate, 7.5);
  EXPECT_EQ(options.connections, 9U);
  EXPECT_EQ(options.duration, 120);
  ASSERT_EQ(options.thresholds.size(), 2U);
  EXPECT_EQ(options.thresholds[0].what, LoadThreshold::Of::logins);
  EXPECT_DOUBLE_EQ(options.thresholds[0].share, 0.999);
  EXPECT_DOUBLE_EQ(options.thresholds[0].bound, 0.2);
  EXPECT_EQ(options.thresholds[1].what, LoadThreshold::Of::errors);
  EXPECT_DOUBLE_EQ(options.thresholds[1].bound, 0.001);
}

TEST(LoadOptionsTest, ReadEachKindOfBound) {
  EXPECT_EQ(LoadThreshold::from("message.max=2s").share, 1);
  EXPECT_EQ(LoadThreshold::from("message.max=2s").what, LoadThreshold::Of::messages);
  EXPECT_EQ(LoadThreshold::from("shed=0%").what, LoadThreshold::Of::shed);
  EXPECT_EQ(LoadThreshold::from("shed=0%").bound, 0);
  for (const char *wrong :
       {"", "login", "login.p99", "login.p99=", "login.p101=1s", "login.q99=1s", "logins.p99=1s", "login.=1s",
        "errors=1", "errors=101%", "errors=%", "p99=1s", "login.p99=200"})
    EXPECT_THROW(LoadThreshold::from(wrong), ScenarioError) << wrong;
}

TEST(LoadOptionsTest, RefuseWhatTheyDoNotUnderstand) {
  EXPECT_EQ(complaintOf({}), "");
  EXPECT_THAT(complaintOf({"--nonsense", "1"}), HasSubstr("there is no option --nonsense"));
  EXPECT_THAT(complaintOf({"--rate"}), HasSubstr("--rate lacks its value"));
  EXPECT_THAT(complaintOf({"--rate", "0"}), HasSubstr("--rate: a number from 0.1"));
  EXPECT_THAT(complaintOf({"--pace", "0.01"}), HasSubstr("--pace: a factor from 0.1"));
  EXPECT_THAT(complaintOf({"--pace", "1..2"}), HasSubstr("--pace: a factor"));
  EXPECT_THAT(complaintOf({"--devices", "1000001"}), HasSubstr("--devices: a number from 1 to 1000000"));
  EXPECT_THAT(complaintOf({"--devices", "1.5"}), HasSubstr("--devices: a number"));
  EXPECT_THAT(complaintOf({"--connections", "0"}), HasSubstr("--connections: a number"));
  EXPECT_THAT(complaintOf({"--duration", "0.5 s"}), HasSubstr("--duration: a second at least"));
  EXPECT_THAT(complaintOf({"--duration", "2 d"}), HasSubstr("--duration: at most a day"));
  EXPECT_THAT(complaintOf({"--from", "noon"}), HasSubstr("--from: a time of day"));
  EXPECT_THAT(complaintOf({"--max", "errors=1"}), HasSubstr("--max: a bound like"));
  EXPECT_THAT(complaintOf({"t.json"}), HasSubstr("one scenario at a time"));
  EXPECT_THROW(LoadOptions::of({"s.json"}), ScenarioError);
  EXPECT_THROW(LoadOptions::of({"--service", "https://localhost"}), ScenarioError);
}

}  // namespace
}  // namespace kx::fleet
