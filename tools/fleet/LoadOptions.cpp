#include "tools/fleet/LoadOptions.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>

#include "tools/fleet/ScenarioFile.h"

namespace kx::fleet {

namespace {

constexpr double longestRun = 86'400;  // seconds
constexpr std::uint32_t mostDevices = 1'000'000;

double numberFrom(const std::string &text, double least, double greatest, const char *wanted) {
  const bool isNumber =
      !text.empty() && text.size() <= 12 && text.find_first_not_of("0123456789.") == std::string::npos;
  char *end = nullptr;
  const double number = isNumber ? std::strtod(text.c_str(), &end) : -1;
  if (!isNumber || *end != '\0' || number < least || number > greatest) throw ScenarioError(wanted);
  return number;
}

template <class Whole>
Whole wholeNumberFrom(const std::string &text, double greatest, const char *wanted) {
  const bool isWhole = text.find('.') == std::string::npos;
  return static_cast<Whole>(numberFrom(isWhole ? text : "", 1, greatest, wanted));
}

double lengthFrom(const std::string &text) {
  const double seconds = secondsOfLength(text);
  if (seconds > longestRun) throw ScenarioError("at most a day");
  return seconds;
}

/// "p99", "p99.9", "max".
double shareFrom(const std::string &text, const char *wanted) {
  if (text == "max") return 1;
  if (text.empty() || text.front() != 'p') throw ScenarioError(wanted);
  return numberFrom(text.substr(1), 0, 100, wanted) / 100;
}

}  // namespace

LoadThreshold LoadThreshold::from(const std::string &text) {
  constexpr const char *wanted =
      R"(a bound like "login.p99=200ms", "message.max=2s", "errors=0.1%" or "shed=0%" is wanted here)";
  const std::size_t equals = std::min(text.find('='), text.size());
  const std::string what = text.substr(0, equals);
  const std::string bound = equals < text.size() ? text.substr(equals + 1) : "";
  LoadThreshold threshold;
  threshold.text = text;
  if (what == "errors" || what == "shed") {
    threshold.what = what == "errors" ? Of::errors : Of::shed;
    if (bound.empty() || bound.back() != '%') throw ScenarioError(wanted);
    threshold.bound = numberFrom(bound.substr(0, bound.size() - 1), 0, 100, wanted) / 100;
    return threshold;
  }
  const std::size_t point = std::min(what.find('.'), what.size());
  const std::string endpoint = what.substr(0, point);
  if ((endpoint != "login" && endpoint != "message") || point == what.size()) throw ScenarioError(wanted);
  threshold.what = endpoint == "login" ? Of::logins : Of::messages;
  threshold.share = shareFrom(what.substr(point + 1), wanted);
  threshold.bound = lengthFrom(bound);
  return threshold;
}

const char *LoadOptions::helpText() {
  return R"(usage: kx-fleet load SCENARIO --service URL [OPTION]...

Has the devices of a scenario send real requests, byte for byte what the library sends, to a service that you own. What
they send, and when, is as in kx-fleet forecast; what the service answers is its own affair. The plan does not wait for
it: a late answer shifts no request but those of the same device that need its token.

SCENARIO is a file; some come along in tools/fleet/scenarios, once installed in share/kx-fleet/scenarios, and docs/scale.md
tells what is in one. docs/load.md tells of the rest.

What is loaded:
  --service URL        the service, "https://localhost:8443"; several are dealt out to the devices
  --really-load HOST   that host is not this machine, and is yours all the same; once more what --service says
  --ca-file FILE       certificates of authorities to trust beside the system's (PEM)
  --api-token TEXT     what the devices log in with ("demo")
  --message FILE       what their messages say, as JSON (a phone with all its facts)

How:
  --devices N          so many devices, and not as many as the scenario has
  --from HH:MM         the time of the scenario's day at which it begins (00:00)
  --pace FACTOR        so much faster than the fleet lives (1)
  --duration LENGTH    of this machine's time, "90 s", "10 min" (60 s)
  --warm-up LENGTH     at most so long devices that have a token by then log in before (60 s)
  --grace LENGTH       so long requests that are open at the end are waited for (5 s)
  --rate N             at most so many requests a second; what is above is shed, and counted
  --connections N      at most so many connected devices (as many as there may be descriptors for)
  --sessions N         of so many devices that are not connected TLS sessions are kept (20000)

What comes of it:
  --max BOUND          fails when it is exceeded: login.p99=200ms, message.max=2s, errors=0.1%, shed=0%
  --json FILE          writes the report as JSON
  --plot FILE          writes a picture (SVG)
  --results FILE       writes a line of JSON for each message: its "id", and the "status" or null
  --help               prints this

Ctrl-C ends it in order, with the report; a second one at once.

Exit codes: 0 all bounds are kept, 1 one is exceeded, 2 the scenario or an option is wrong, 3 it could not be done.
)";
}

LoadOptions LoadOptions::of(const std::vector<std::string> &arguments) {
  LoadOptions options;
  const auto text = [](auto &to) { return [&to](const std::string &value) { to = value; }; };
  const auto listed = [](auto &to) { return [&to](const std::string &value) { to.push_back(value); }; };
  const auto length = [](double &to) { return [&to](const std::string &value) { to = lengthFrom(value); }; };
  const std::map<std::string, std::function<void(const std::string &)>> all{
      {"--service", listed(options.services)},
      {"--really-load", listed(options.reallyLoaded)},
      {"--ca-file", text(options.certificateAuthorityFile)},
      {"--api-token", text(options.apiToken)},
      {"--message", text(options.message)},
      {"--json", text(options.json)},
      {"--plot", text(options.plot)},
      {"--results", text(options.results)},
      {"--duration", length(options.duration)},
      {"--warm-up", length(options.warmUp)},
      {"--grace", length(options.grace)},
      {"--from", [&](const std::string &value) { options.from = secondsOfDay(value); }},
      {"--pace",
       [&](const std::string &value) {
         options.pace = numberFrom(value, 0.1, 10'000, "a factor from 0.1 to 10000 is wanted here");
       }},
      {"--rate",
       [&](const std::string &value) {
         options.rate = numberFrom(value, 0.1, 1e6, "a number from 0.1 to 1000000 is wanted here");
       }},
      {"--devices",
       [&](const std::string &value) {
         options.devices =
             wholeNumberFrom<std::uint32_t>(value, mostDevices, "a number from 1 to 1000000 is wanted here");
       }},
      {"--connections",
       [&](const std::string &value) {
         options.connections =
             wholeNumberFrom<std::size_t>(value, 1e6, "a number from 1 to 1000000 is wanted here");
       }},
      {"--sessions",
       [&](const std::string &value) {
         options.sessions =
             wholeNumberFrom<std::size_t>(value, 1e7, "a number from 1 to 10000000 is wanted here");
       }},
      {"--max", [&](const std::string &value) { options.thresholds.push_back(LoadThreshold::from(value)); }},
  };
  for (std::size_t next = 0; next < arguments.size();) {
    const std::string &option = arguments[next++];
    if (option == "--help") {
      options.help = true;
      return options;
    }
    if (option.compare(0, 1, "-") != 0) {
      if (!options.scenario.empty()) throw ScenarioError("one scenario at a time: " + option);
      options.scenario = option;
      continue;
    }
    const auto known = all.find(option);
    if (known == all.end()) throw ScenarioError("there is no option " + option);
    if (next == arguments.size()) throw ScenarioError(option + " lacks its value");
    try {
      known->second(arguments[next++]);
    } catch (const ScenarioError &error) {
      throw ScenarioError(option + ": " + error.what());
    }
  }
  if (options.scenario.empty()) throw ScenarioError("which scenario?");
  if (options.services.empty()) throw ScenarioError("which service? --service https://localhost:8443");
  if (options.duration < 1) throw ScenarioError("--duration: a second at least");
  return options;
}

}  // namespace kx::fleet
