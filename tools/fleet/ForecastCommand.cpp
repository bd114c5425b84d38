#include "tools/fleet/ForecastCommand.h"

#include <cstdio>
#include <fstream>
#include <optional>

#include "tools/fleet/Forecast.h"
#include "tools/fleet/ForecastPlot.h"
#include "tools/fleet/ScenarioFile.h"

namespace kx::fleet {

namespace {

constexpr const char *help = R"(usage: kx-fleet forecast SCENARIO [OPTION]...

Lets the devices of a scenario live through a day of virtual time, and tells what their service sees: logins and
messages a second, bytes, connections, open requests, and the reports that are lost for ever. What happens to the
service in the scenario is held against the same day without it. The same scenario has the same forecast each time.

SCENARIO is a file; some come along in tools/fleet/scenarios, once installed in share/kx-fleet/scenarios, and docs/scale.md
tells what is in one.

  --devices N       so many devices, and not as many as the scenario has
  --csv FILE        writes the numbers to a file, a line for each step
  --step SECONDS    the length of a step, 10 s unless told
  --plot FILE       writes a picture (SVG)
  --from HH:MM      the picture's first time of the day
  --to HH:MM        and its last one
  --help            prints this

Exit codes: 0 all is well, 1 a file cannot be written, 2 the scenario or an option is wrong.
)";

enum ExitCode { well = 0, cannotWrite = 1, wrong = 2 };

struct Wanted {
  std::string scenario;
  std::optional<std::string> csv;
  std::optional<std::string> plot;
  std::optional<unsigned long> devices;
  std::optional<double> from;
  std::optional<double> to;
  std::size_t step = 10;
};

/// A whole number and nothing else, from 1 to `greatest`; throws `ScenarioError`.
unsigned long wholeNumber(const std::string &text, unsigned long greatest) {
  const bool isShort = !text.empty() && text.size() <= 9;
  const bool isNumber = isShort && text.find_first_not_of("0123456789") == std::string::npos;
  const unsigned long number = isNumber ? std::stoul(text) : 0;
  if (number < 1 || number > greatest)
    throw ScenarioError("a number from 1 to " + std::to_string(greatest) + " is wanted here");
  return number;
}

Wanted wantedBy(const std::vector<std::string> &arguments) {
  Wanted wanted;
  for (std::size_t next = 0; next < arguments.size();) {
    const std::string &option = arguments[next++];
    if (option.compare(0, 1, "-") != 0) {
      if (!wanted.scenario.empty()) throw ScenarioError("one scenario at a time: " + option);
      wanted.scenario = option;
      continue;
    }
    const bool isKnown = option == "--csv" || option == "--plot" || option == "--devices" ||
                         option == "--step" || option == "--from" || option == "--to";
    if (!isKnown) throw ScenarioError("there is no option " + option);
    if (next == arguments.size()) throw ScenarioError(option + " lacks its value");
    const std::string &value = arguments[next++];
    try {
      if (option == "--csv") wanted.csv = value;
      if (option == "--plot") wanted.plot = value;
      if (option == "--devices") wanted.devices = wholeNumber(value, 50'000'000);
      if (option == "--step") wanted.step = wholeNumber(value, 86'400);
      if (option == "--from") wanted.from = secondsOfDay(value);
      if (option == "--to") wanted.to = secondsOfDay(value);
    } catch (const ScenarioError &error) {
      throw ScenarioError(option + ": " + error.what());
    }
  }
  if (wanted.scenario.empty()) throw ScenarioError("which scenario?");
  return wanted;
}

bool writeFile(const std::string &file, const std::string &text) {
  std::ofstream stream(file, std::ios::binary);
  if (stream << text && stream.flush()) return true;
  std::fprintf(stderr, "kx-fleet: %s cannot be written\n", file.c_str());
  return false;
}

int forecast(const Wanted &wanted) {
  FleetScenario scenario = scenarioFromFile(wanted.scenario);
  if (wanted.devices) scenario.devices = static_cast<std::uint32_t>(*wanted.devices);
  const double from = wanted.from.value_or(0);
  const double to = wanted.to.value_or(scenario.length);
  if (from >= to || to > scenario.length)
    throw ScenarioError("--from and --to: no part of the scenario's time");

  const Forecast result = forecastOf(scenario);
  std::fputs(tableOf(result).c_str(), stdout);
  const bool isWritten =
      (!wanted.csv || writeFile(*wanted.csv, csvOf(result, wanted.step))) &&
      (!wanted.plot ||
       writeFile(*wanted.plot, plotOf(result, static_cast<std::size_t>(from), static_cast<std::size_t>(to))));
  return isWritten && std::fflush(stdout) == 0 ? well : cannotWrite;
}

}  // namespace

int runForecast(const std::vector<std::string> &arguments) {
  for (const std::string &argument : arguments) {
    if (argument != "--help") continue;
    std::fputs(help, stdout);
    return well;
  }
  try {
    return forecast(wantedBy(arguments));
  } catch (const ScenarioError &error) {
    std::fprintf(stderr, "kx-fleet forecast: %s\nTry kx-fleet forecast --help.\n", error.what());
    return wrong;
  }
}

}  // namespace kx::fleet
