#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

using testing::HasSubstr;

class FleetProgram : public testing::Test {
 protected:
  FleetProgram() {
    std::ofstream(scenario) << R"({"devices": 1000000000, "length": "2 h", "before": "1 h"})";
    std::ofstream(path("small.json")) << R"({"devices": 50, "length": "2 h", "before": "1 h"})";
  }

  std::string path(const std::string &name) const { return directory.path() + "/" + name; }
  std::string read(const std::string &name) const {
    std::ostringstream text;
    text << std::ifstream(path(name)).rdbuf();
    return text.str();
  }
  std::optional<int> run(std::vector<std::string> words) {
    words.insert(words.begin(), KX_FLEET_PROGRAM);
    ChildProcess program(words);
    const auto code = program.exitCode();
    output = program.output();
    errors = program.errors();
    return code;
  }
  std::optional<int> forecast(std::vector<std::string> words) {
    words.insert(words.begin(), {"forecast", path("small.json")});
    return run(words);
  }

  const TemporaryDirectory directory;
  const std::string scenario = path("scenario.json");
  std::string output;
  std::string errors;
};

TEST_F(FleetProgram, TellsItsCommands) {
  EXPECT_EQ(run({"--help"}), 0);
  EXPECT_THAT(output, HasSubstr("\n  forecast "));
  EXPECT_EQ(run({}), 2);
  EXPECT_THAT(errors, HasSubstr("usage: kx-fleet COMMAND"));
  EXPECT_EQ(run({"forecasts"}), 2);
  EXPECT_THAT(errors, HasSubstr("usage: kx-fleet COMMAND"));
}

TEST_F(FleetProgram, TellsOfAForecastsOptions) {
  EXPECT_EQ(run({"forecast", "--help"}), 0);
  for (const char *option : {"--devices", "--csv", "--step", "--plot", "--from", "--to"})
    EXPECT_THAT(output, HasSubstr(option));
}

TEST_F(FleetProgram, Forecasts) {
  EXPECT_EQ(forecast({"--csv", path("it.csv"), "--step", "60", "--plot", path("it.svg"), "--from", "00:30",
                      "--to", "01:30"}),
            0)
      << errors;
  EXPECT_THAT(output, HasSubstr("50 devices, 02:00:00 from 00:00 UTC"));
  EXPECT_EQ(errors, "");
  const std::string csv = read("it.csv");
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 1 + 120);
  EXPECT_THAT(read("it.svg"), HasSubstr(">01:30</text>\n"));
  EXPECT_THAT(read("it.svg"), testing::Not(HasSubstr(">01:40</text>\n")));
  EXPECT_EQ(forecast({"--devices", "7"}), 0);
  EXPECT_THAT(output, HasSubstr("7.0 devices"));
}

TEST_F(FleetProgram, RefusesWhatItDoesNotUnderstand) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> wrong{
      {{"--nonsense", "1"}, "there is no option --nonsense"},
      {{"--csv"}, "--csv lacks its value"},
      {{"--step", "0"}, "--step: a number from 1 to 86400"},
      {{"--step", "86401"}, "--step: a number from 1"},
      {{"--step", "1x"}, "--step: a number from 1"},
      {{"--devices", "99999999999999999999"}, "--devices: a number from 1"},
      {{"--from", "noon"}, "--from: a time of day"},
      {{"--from", "01:00", "--to", "01:00"}, "no part of the scenario's time"},
      {{"--to", "02:01"}, "no part of the scenario's time"},
      {{"another.json"}, "one scenario at a time"},
  };
  for (const auto &[words, complaint] : wrong) {
    EXPECT_EQ(forecast(words), 2);
    EXPECT_THAT(errors, HasSubstr("kx-fleet forecast: "));
    EXPECT_THAT(errors, HasSubstr(complaint));
    EXPECT_EQ(output, "");
  }
  EXPECT_EQ(run({"forecast"}), 2);
  EXPECT_THAT(errors, HasSubstr("which scenario?"));
  EXPECT_EQ(run({"forecast", scenario}), 2);
  EXPECT_THAT(errors, HasSubstr("scenario.json: devices: a number from 1 to 50000000"));
}

TEST_F(FleetProgram, SaysWhatItCannotWrite) {
  EXPECT_EQ(forecast({"--csv", path("none/it.csv")}), 1);
  EXPECT_THAT(errors, HasSubstr("none/it.csv cannot be written"));
  EXPECT_EQ(forecast({"--plot", "/dev/full"}), 1);
  EXPECT_THAT(errors, HasSubstr("/dev/full cannot be written"));
}

}  // namespace
}  // namespace kx
