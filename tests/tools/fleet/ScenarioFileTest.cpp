#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/ChildProcess.h"
#include "tools/fleet/ScenarioFile.h"

namespace kx::fleet {
namespace {

using testing::HasSubstr;

class ScenarioFileTest : public testing::Test {
 protected:
  std::string write(const std::string &name, const std::string &text) const {
    const std::string file = folder / name;
    std::ofstream(file) << text;
    return file;
  }
  FleetScenario read(const std::string &text) const { return scenarioFromFile(write("it.json", text)); }
  std::string refusal(const std::string &text) const {
    try {
      read(text);
    } catch (const ScenarioError &error) {
      return error.what();
    }
    return "";
  }

  const TemporaryDirectory directory;
  const std::filesystem::path folder = directory.path();
};

TEST_F(ScenarioFileTest, HasAnOrdinaryDayForWhatIsLeftOut) {
  const FleetScenario scenario = read("{}");
  EXPECT_EQ(scenario.devices, 1'000'000u);
  EXPECT_EQ(scenario.length, 86'400);
  EXPECT_FALSE(scenario.isDisturbed());
  EXPECT_FALSE(scenario.service.capacity.has_value());
}

TEST_F(ScenarioFileTest, TakesEveryMember) {
  const FleetScenario scenario = read(R"(// with comments
{
  "title": "A title", "devices": 5, "seed": 7, "length": "2 h", "before": "90 min", "connectionKept": "2 min",
  "use": {
    "sessionsPerDay": 3.5, "sessionLength": {"0%": "1 s", "99.5%": "1 min", "100%": "1.5 h"},
    "hours": [1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24],
    "zones": [{"share": 0.25, "hoursAhead": -8}, {"share": 0.75, "hoursAhead": 5.5}],
    "newProcess": 0.1, "suspendedAfter": "30 s", "withoutIdentifier": 0.3
  },
  "updates": [{"at": "00:10", "within": "5 min", "share": 0.4}],
  "service": {
    "latency": "250 ms", "tokenLife": "2 d", "tokenLifeSpread": 0.6, "tokensRefused": ["01:00", "01:00:30"],
    "outages": [{"at": "00:20", "length": "10 s", "silent": true, "of": "logins"}, {"of": "messages"}, {}],
    "capacity": {"messagesPerSecond": 50, "loginCost": 2.5, "shedLoginsAbove": "0 s", "shedMessagesAbove": "3 s",
                 "spreadShedLogins": "50 s"}
  },
  "bytes": {"loginUp": 1, "loginDown": 2, "messageUp": 3, "messageDown": 4, "connectionUp": 5, "connectionDown": 6}
})");
  EXPECT_EQ(scenario.title, "A title");
  EXPECT_EQ(scenario.devices, 5u);
  EXPECT_EQ(scenario.seed, 7u);
  EXPECT_EQ(scenario.length, 7200);
  EXPECT_EQ(scenario.before, 5400);
  EXPECT_EQ(scenario.connectionKept, 120);
  EXPECT_EQ(scenario.use.sessionsPerDay, 3.5);
  EXPECT_EQ(scenario.use.sessionLength.at(0), 1);
  EXPECT_DOUBLE_EQ(scenario.use.sessionLength.at(0.995), 60);
  EXPECT_EQ(scenario.use.sessionLength.greatest(), 5400);
  EXPECT_EQ(scenario.use.hours[23], 24);
  ASSERT_EQ(scenario.use.zones.size(), 2u);
  EXPECT_EQ(scenario.use.zones[0].share, 0.25);
  EXPECT_EQ(scenario.use.zones[1].hoursAhead, 5.5);
  EXPECT_EQ(scenario.use.newProcess, 0.1);
  EXPECT_EQ(scenario.use.suspendedAfter, 30);
  EXPECT_EQ(scenario.use.withoutIdentifier, 0.3);
  ASSERT_EQ(scenario.updates.size(), 1u);
  EXPECT_EQ(scenario.updates[0].at, 600);
  EXPECT_EQ(scenario.updates[0].within, 300);
  EXPECT_EQ(scenario.updates[0].share, 0.4);
  const auto &service = scenario.service;
  EXPECT_EQ(service.latency.at(0.3), 0.25);
  EXPECT_EQ(service.tokenLife, 172'800);
  EXPECT_EQ(service.tokenLifeSpread, 0.6);
  EXPECT_EQ(service.refusals, (std::vector<double>{3600, 3630}));
  ASSERT_EQ(service.outages.size(), 3u);
  EXPECT_EQ(service.outages[0].at, 1200);
  EXPECT_EQ(service.outages[0].length, 10);
  EXPECT_TRUE(service.outages[0].silent);
  EXPECT_EQ(service.outages[0].of, FleetScenario::Outage::Of::logins);
  EXPECT_EQ(service.outages[1].of, FleetScenario::Outage::Of::messages);
  EXPECT_EQ(service.outages[2].of, FleetScenario::Outage::Of::everything);
  ASSERT_TRUE(service.capacity.has_value());
  EXPECT_EQ(service.capacity->perSecond, 50);
  EXPECT_EQ(service.capacity->loginCost, 2.5);
  EXPECT_EQ(service.capacity->shedLoginsAbove, 0);
  EXPECT_EQ(service.capacity->shedMessagesAbove, 3);
  EXPECT_EQ(service.capacity->spreadShedLogins, 50);
  EXPECT_EQ(scenario.bytes.loginUp, 1);
  EXPECT_EQ(scenario.bytes.loginDown, 2);
  EXPECT_EQ(scenario.bytes.messageUp, 3);
  EXPECT_EQ(scenario.bytes.messageDown, 4);
  EXPECT_EQ(scenario.bytes.connectionUp, 5);
  EXPECT_EQ(scenario.bytes.connectionDown, 6);
}

TEST_F(ScenarioFileTest, StandsOnTheFileThatItNames) {
  write("basis.json", R"({"devices": 10, "seed": 2, "service": {"tokenLife": "1 h", "latency": "1 s"}})");
  write("between.json", R"({"basis": "basis.json", "seed": 3, "service": {"tokenLife": null}})");
  const FleetScenario scenario = read(R"({"basis": "between.json", "service": {"latency": "2 s"}})");
  EXPECT_EQ(scenario.devices, 10u);
  EXPECT_EQ(scenario.seed, 3u);
  EXPECT_FALSE(scenario.service.tokenLife.has_value());
  EXPECT_EQ(scenario.service.latency.at(0), 2);
}

TEST_F(ScenarioFileTest, RefusesFilesThatStandOnEachOther) {
  EXPECT_THAT(refusal(R"({"basis": "it.json"})"), HasSubstr("too many files"));
  EXPECT_THAT(refusal(R"({"basis": "none.json"})"), HasSubstr("none.json: cannot be read"));
  EXPECT_THAT(refusal(R"({"basis": 1})"), HasSubstr("basis: the name of another file"));
}

TEST_F(ScenarioFileTest, SaysWhereAFileIsNoJson) {
  EXPECT_THAT(refusal("{\n\"devices\": 1,\n\"seed\" 2}"), HasSubstr("line 3"));
  EXPECT_THAT(refusal(""), HasSubstr("is no JSON"));
  EXPECT_THAT(refusal("[1]"), HasSubstr("an object is wanted"));
  EXPECT_THAT(refusal("{\"title\": \"\xff\"}"), HasSubstr("is no JSON"));
  EXPECT_THAT(refusal("{\"devices\": 1e999}"), HasSubstr("is no JSON"));
  EXPECT_THAT(refusal(std::string(1'000'001, ' ')), HasSubstr("too long"));
  EXPECT_NO_THROW(read(std::string(900'000, ' ') + "{}"));
  EXPECT_NE(refusal(std::string(500'000, '[')), "");  // no end of the stack
  EXPECT_THROW(scenarioFromFile(folder), ScenarioError);
  EXPECT_THROW(scenarioFromFile(folder / "none.json"), ScenarioError);
}

TEST_F(ScenarioFileTest, SaysWhatIsWrongAndWhere) {
  const std::vector<std::pair<std::string, std::string>> wrong{
      {R"({"device": 1})", "no scenario has a member \"device\""},
      {R"({"use": {"session": 1}})", "use: no scenario has a member \"session\""},
      {R"({"devices": 0})", "devices: a number from 1 to 50000000"},
      {R"({"devices": 50000001})", "devices: a number"},
      {R"({"devices": 1.5})", "devices: a whole number"},
      {R"({"devices": "1"})", "devices: a number"},
      {R"({"devices": null})", "devices: a number"},
      {R"({"seed": -1})", "seed: a number"},
      {R"({"title": 1})", "title: a text"},
      {R"({"length": "59 s"})", "length: a minute at least"},
      {R"({"length": "20 d"})", "20 days at most"},
      {R"({"length": "21 d"})", "length: too long"},
      {R"({"length": 60})", "length: a length of time"},
      {R"({"length": "60"})", "length: a length of time"},
      {R"({"length": "1.2.3 s"})", "length: a length of time"},
      {R"({"length": "-1 h"})", "length: a length of time"},
      {R"({"length": "1 parsec"})", "length: a length of time"},
      {R"({"length": " h"})", "length: a length of time"},
      {R"({"use": 1})", "use: an object"},
      {R"({"use": {"sessionsPerDay": 0}})", "use.sessionsPerDay: a number"},
      {R"({"use": {"sessionLength": {"0%": "1 s"}}})",
       "use.sessionLength: a length of time is wanted here, or"},
      {R"({"use": {"sessionLength": {"0%": "1 s", "50%": "2 s"}}})", "from 0% to 100%"},
      {R"({"use": {"sessionLength": {"10%": "1 s", "100%": "2 s"}}})", "from 0% to 100%"},
      {R"({"use": {"sessionLength": {"0%": "3 s", "100%": "2 s"}}})", "does not fall"},
      {R"({"use": {"sessionLength": {"0": "1 s", "100%": "2 s"}}})", "from 0% to 100%"},
      {R"({"use": {"sessionLength": {"0%": "1 s", "nan%": "1 s", "100%": "2 s"}}})", "from 0% to 100%"},
      {R"({"use": {"sessionLength": {"0%": "1 s", "100%": "2 d"}}})", "use.sessionLength.100%: too long"},
      {R"({"use": {"sessionLength": []}})", "use.sessionLength: a length"},
      {R"({"use": {"hours": [1, 2]}})", "use.hours: 24 numbers"},
      {R"({"use": {"hours": [0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0]}})", "use.hours: 24 numbers"},
      {R"({"use": {"hours": [0,0,0,-1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0]}})", "use.hours[3]: a number"},
      {R"({"use": {"hours": 1}})", "use.hours: a list of at most 24"},
      {R"({"use": {"zones": []}})", "use.zones: shares that add up to 1"},
      {R"({"use": {"zones": [{"share": 0.5}]}})", "use.zones: shares that add up to 1"},
      {R"({"use": {"zones": [{"share": 1, "hoursAhead": 15}]}})", "use.zones[0].hoursAhead: a number"},
      {R"({"use": {"newProcess": 1.1}})", "use.newProcess: a number"},
      {R"({"updates": [{"at": "9"}]})", "updates[0].at: a time of day"},
      {R"({"updates": [{"at": "09:60"}]})", "updates[0].at: a time of day"},
      {R"({"updates": [{"at": "25:00"}]})", "updates[0].at: a time of day"},
      {R"({"updates": [{"at": "+9:00"}]})", "updates[0].at: a time of day"},
      {R"({"updates": [{"at": "24:01"}]})", "updates[0].at: too long"},
      {R"({"updates": [{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{}]})",
       "updates: a list of at most 24"},
      {R"({"service": {"latency": "61 s"}})", "service.latency: too long"},
      {R"({"service": {"tokensRefused": [1]}})", "service.tokensRefused[0]: a time of day"},
      {R"({"service": {"outages": [{}, {"silent": 1}]}})", "service.outages[1].silent: true or false"},
      {R"({"service": {"outages": [{"of": "all"}]}})", "service.outages[0].of: \"everything\", \"logins\""},
      {R"({"service": {"capacity": {}}})", "service.capacity: \"messagesPerSecond\" is wanted"},
      {R"({"service": {"capacity": {"messagesPerSecond": 0}}})",
       "service.capacity.messagesPerSecond: a number"},
      {R"({"bytes": {"loginUp": -1}})", "bytes.loginUp: a number"},
      {R"({"connectionKept": "25 h"})", "connectionKept: too long"},
  };
  for (const auto &[text, complaint] : wrong) EXPECT_THAT(refusal(text), HasSubstr(complaint)) << text;
}

TEST_F(ScenarioFileTest, KnowsTimes) {
  EXPECT_EQ(secondsOfDay("00:00"), 0);
  EXPECT_EQ(secondsOfDay("9:05"), 9 * 3600 + 300);
  EXPECT_EQ(secondsOfDay("23:59:59"), 86'399);
  EXPECT_EQ(secondsOfLength("250 ms"), 0.25);
  EXPECT_EQ(secondsOfLength("90s"), 90);
  EXPECT_EQ(secondsOfLength("1.5 h"), 5400);
  EXPECT_EQ(secondsOfLength("2 d"), 172'800);
}

TEST(Scenarios, AreAllRight) {
  int read = 0;
  for (const auto &entry : std::filesystem::directory_iterator(KX_SOURCE_DIR "/tools/fleet/scenarios")) {
    const FleetScenario scenario = scenarioFromFile(entry.path());
    EXPECT_FALSE(scenario.title.empty()) << entry.path();
    ++read;
  }
  EXPECT_GE(read, 10);
}

}  // namespace
}  // namespace kx::fleet
