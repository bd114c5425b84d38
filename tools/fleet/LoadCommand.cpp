#include "tools/fleet/LoadCommand.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>

#include "tools/fleet/Forecast.h"
#include "tools/fleet/LoadOptions.h"
#include "tools/fleet/LoadReport.h"
#include "tools/fleet/LoadRun.h"
#include "tools/fleet/ScenarioFile.h"

namespace kx::fleet {

namespace {

enum ExitCode { allIsKept = 0, someIsExceeded = 1, wrongUsage = 2, couldNotRun = 3 };

constexpr rlim_t descriptorsOfOthers = 64;
constexpr double betweenLines = 5;  // seconds, where there is no terminal

volatile std::sig_atomic_t isInterrupted = 0;

/// The first signal ends the load in order, and the next one ends the program.
void endInOrder() {
  struct sigaction action {};
  action.sa_handler = [](int) { isInterrupted = 1; };
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);  // a service that closes a connection is none of its business
}

/// As many as the system allows, and how many devices may be connected by them.
std::size_t connectionsByDescriptors() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
    throw std::runtime_error("nobody knows how many files may be open");
  limit.rlim_cur = std::min(limit.rlim_max, rlim_t{1'000'000});
  setrlimit(RLIMIT_NOFILE, &limit);
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlim_t left = limit.rlim_cur > descriptorsOfOthers ? limit.rlim_cur - descriptorsOfOthers : 0;
  return static_cast<std::size_t>(left / LoadTransport::descriptorsPerConnection);
}

std::size_t connectionsFor(const LoadOptions &options) {
  const std::size_t most = connectionsByDescriptors();
  const std::size_t wanted = options.connections.value_or(std::max<std::size_t>(most, 1));
  if (wanted > most)
    throw ScenarioError("--connections: there are descriptors for " + std::to_string(most) +
                        " here (ulimit -n)");
  return wanted;
}

/// A file that is written in the end, and opened before, so that nothing is done in vain.
class OutputFile {
 public:
  explicit OutputFile(const std::optional<std::string> &name)
      : name_(name.value_or("")), file_(name ? std::fopen(name->c_str(), "wbe") : nullptr, &std::fclose) {
    if (name && file_ == nullptr) throw std::runtime_error(name_ + " cannot be written");
  }

  std::FILE *get() const { return file_.get(); }
  void write(const std::string &text) {
    if (file_ != nullptr) std::fputs(text.c_str(), file_.get());
  }
  /// Throws where not all of it could be written.
  void flush() {
    if (file_ != nullptr && (std::fflush(file_.get()) != 0 || std::ferror(file_.get()) != 0))
      throw std::runtime_error(name_ + " cannot be written");
  }

 private:
  const std::string name_;
  const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file_;
};

/// A line that tells how it goes, on standard error.
class Progress {
 public:
  void tell(double now, const LoadRun &run) {
    const auto seconds = run.statistics().seconds();
    if (seconds.size() < 2 || (!isTerminal_ && now < next_)) return;
    next_ = now + betweenLines;
    const LoadSecond &last = seconds[seconds.size() - 2];
    char line[200];
    std::snprintf(line, sizeof line,
                  "%.0f of %.0f s: %s sent/s, %s answered/s, %s failed/s, %zu open, p99 %s", now,
                  run.plannedLength(), numberText(last.sent).c_str(), numberText(last.answered).c_str(),
                  numberText(last.failed).c_str(), run.openRequests(), durationText(last.p99).c_str());
    std::fprintf(stderr, isTerminal_ ? "\r%s\x1b[K" : "%s\n", line);
    wasTold_ = true;
  }
  void end() const {
    if (isTerminal_ && wasTold_) std::fputs("\r\x1b[K", stderr);
  }

 private:
  const bool isTerminal_ = isatty(STDERR_FILENO) == 1;
  double next_ = 0;
  bool wasTold_ = false;
};

std::vector<LoadService> servicesOf(const LoadOptions &options) {
  std::vector<LoadService> services;
  for (const std::string &url : options.services) {
    services.push_back(LoadService::of(url));
    requirePermission(services.back(), options.reallyLoaded);
  }
  return services;
}

FleetScenario scenarioOf(const LoadOptions &options) {
  FleetScenario scenario = scenarioFromFile(options.scenario);
  if (options.devices) scenario.devices = *options.devices;
  constexpr std::uint32_t mostDevices = 1'000'000;
  if (scenario.devices > mostDevices)
    throw ScenarioError("a million devices are the most for one machine; --devices has fewer");
  if (options.from >= scenario.length) throw ScenarioError("--from: no part of the scenario's time");
  return scenario;
}

int load(const LoadOptions &options) {
  const FleetScenario scenario = scenarioOf(options);
  const LoadMessage message =
      options.message ? LoadMessage::fromFile(*options.message) : LoadMessage::usual();
  auto services = servicesOf(options);
  const std::size_t connections = connectionsFor(options);
  OutputFile json(options.json);
  OutputFile plot(options.plot);
  OutputFile results(options.results);
  endInOrder();
  LoadRequests::setDevice(message.systemName(), message.bundleIdentifier());

  LoadRun run(scenario, options, std::move(services), message, connections, results.get());
  const auto isEnding = [] { return isInterrupted != 0; };
  run.warmUp(isEnding);
  Progress progress;
  run.run(isEnding, [&](double now) {
    progress.tell(now, run);
    results.flush();
  });
  progress.end();

  LoadReport report;
  report.title = scenario.title;
  report.devices = scenario.devices;
  report.services = options.services;
  report.from = options.from;
  report.pace = options.pace;
  report.length = run.length();
  report.wasEnded = isEnding();
  report.statistics = run.statistics();
  report.thresholds = options.thresholds;
  std::fputs(textOf(report).c_str(), stdout);
  json.write(jsonOf(report));
  json.flush();
  plot.write(plotOf(report));
  plot.flush();
  results.flush();
  if (std::fflush(stdout) != 0) throw std::runtime_error("the report cannot be written");
  const bool allKept = std::all_of(report.thresholds.begin(), report.thresholds.end(),
                                   [&report](const auto &threshold) { return isKept(report, threshold); });
  if (report.statistics.sum(&EndpointStatistics::sent) > 0 &&
      report.statistics.sum(&EndpointStatistics::answered) == 0)
    throw std::runtime_error("nothing was answered");
  return allKept ? allIsKept : someIsExceeded;
}

}  // namespace

int runLoad(const std::vector<std::string> &arguments) {
  try {
    const LoadOptions options = LoadOptions::of(arguments);
    if (!options.help) return load(options);
    std::fputs(LoadOptions::helpText(), stdout);
    return allIsKept;
  } catch (const ScenarioError &error) {
    std::fprintf(stderr, "kx-fleet load: %s\nTry kx-fleet load --help.\n", error.what());
    return wrongUsage;
  } catch (const std::exception &error) {
    std::fprintf(stderr, "kx-fleet load: %s\n", error.what());
    return couldNotRun;
  }
}

}  // namespace kx::fleet
