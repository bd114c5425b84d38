#include "tools/fleet/LoadReport.h"

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/fleet/Forecast.h"

namespace kx::fleet {

namespace {

using Json = nlohmann::ordered_json;

constexpr Endpoint endpoints[] = {Endpoint::login, Endpoint::message};

constexpr std::pair<const char *, double> percentiles[] = {
    {"p50", 0.5}, {"p90", 0.9}, {"p99", 0.99}, {"p99.9", 0.999}, {"max", 1}};

const char *nameOf(Endpoint endpoint) {
  return endpointNames.at(static_cast<std::size_t>(endpoint));
}

std::string shareText(double share) {
  char text[40];
  std::snprintf(text, sizeof text, "%.3g %%", share * 100);
  return text;
}

double perSecond(std::uint64_t number, double length) {
  return length > 0 ? static_cast<double>(number) / length : 0;
}

std::string countText(std::uint64_t number) {
  char digits[40];
  std::snprintf(digits, sizeof digits, "%llu", static_cast<unsigned long long>(number));
  std::string text = digits;
  for (std::size_t i = text.size(); i > 3;) text.insert(i -= 3, ",");
  return text;
}

template <class... Cells>
std::string row(const char *format, Cells... cells) {
  char line[240];
  std::snprintf(line, sizeof line, format, cells...);
  return line;
}

std::string requestsOf(const LoadReport &report) {
  std::string text = row("%-10s %10s %10s %10s %10s %10s %10s\n", "", "planned", "sent", "answered", "failed",
                         "shed", "sent/s");
  for (const Endpoint endpoint : endpoints) {
    const EndpointStatistics &of = report.statistics.of(endpoint);
    text += row("%-10s %10s %10s %10s %10s %10s %10s\n", nameOf(endpoint), countText(of.planned).c_str(),
                countText(of.sent).c_str(), countText(of.answered).c_str(), countText(of.failed).c_str(),
                countText(of.shedByRate + of.shedByConnections).c_str(),
                numberText(perSecond(of.sent, report.length)).c_str());
  }
  return text;
}

std::string latenciesOf(const LoadReport &report) {
  std::string text = "\nanswered within, from when the plan wanted it sent\n          ";
  for (const auto &[name, share] : percentiles) text += row(" %10s", name);
  text += "\n";
  for (const Endpoint endpoint : endpoints) {
    text += row("%-10s", nameOf(endpoint));
    const LatencyHistogram &latency = report.statistics.of(endpoint).latency;
    for (const auto &[name, share] : percentiles)
      text += row(" %10s", latency.count() == 0 ? "-" : durationText(latency.at(share)).c_str());
    text += "\n";
  }
  return text;
}

std::string failuresOf(const LoadReport &report) {
  std::string text;
  const auto add = [&text](const char *endpoint, const std::string &what, std::uint64_t count) {
    text += row("  %-10s %12s  %s\n", endpoint, countText(count).c_str(), what.c_str());
  };
  for (const Endpoint endpoint : endpoints) {
    const EndpointStatistics &of = report.statistics.of(endpoint);
    for (const auto &[status, count] : of.statuses) {
      if (status < 200 || status > 299) add(nameOf(endpoint), "status " + std::to_string(status), count);
    }
    for (const auto &[problem, count] : of.problems) add(nameOf(endpoint), problem, count);
    if (of.shedByRate > 0) add(nameOf(endpoint), "not sent: above the rate", of.shedByRate);
    if (of.shedByConnections > 0) add(nameOf(endpoint), "not sent: no connection left", of.shedByConnections);
  }
  return text.empty() ? "\nnothing failed\n" : "\nwhat failed\n" + text;
}

std::string connectionsOf(const LoadReport &report) {
  const LoadStatistics &statistics = report.statistics;
  std::string text = "\nconnections: " + countText(statistics.opened + statistics.resumed) + " opened, " +
                     countText(statistics.resumed) + " of them with a TLS session of before; " +
                     countText(statistics.reused) + " requests found one open; at most " +
                     countText(statistics.mostConnected) + " devices were connected\n";
  text += "reports that were not sent: " + countText(statistics.lostWithoutToken()) + " without a token, " +
          countText(statistics.lostWithoutIdentifier()) + " without an identifier\n";
  if (statistics.warmUpWanted > 0)
    text += "before the beginning: " + countText(statistics.warmUpDone) + " of " +
            countText(statistics.warmUpWanted) + " devices that had a token logged in\n";
  text += "the load itself was late by " + durationText(statistics.lateness().at(0.99)) + " (p99), " +
          durationText(statistics.lateness().greatest()) + " at most\n";
  return text;
}

std::string boundText(const LoadThreshold &threshold, double value) {
  const bool isShare =
      threshold.what == LoadThreshold::Of::errors || threshold.what == LoadThreshold::Of::shed;
  return isShare ? shareText(value) : durationText(value);
}

Json latencyOf(const LatencyHistogram &latency) {
  Json json = Json::object();
  if (latency.count() == 0) return json;
  for (const auto &[name, share] : percentiles) json[name] = latency.at(share);
  return json;
}

Json jsonOf(const EndpointStatistics &of) {
  Json statuses = Json::object();
  for (const auto &[status, count] : of.statuses) statuses[std::to_string(status)] = count;
  Json problems = Json::object();
  for (const auto &[problem, count] : of.problems) problems[problem] = count;
  return {{"planned", of.planned},
          {"sent", of.sent},
          {"answered", of.answered},
          {"failed", of.failed},
          {"shedByRate", of.shedByRate},
          {"shedByConnections", of.shedByConnections},
          {"statuses", statuses},
          {"problems", problems},
          {"latency", latencyOf(of.latency)}};
}

}  // namespace

double measuredBy(const LoadReport &report, const LoadThreshold &threshold) {
  const LoadStatistics &statistics = report.statistics;
  switch (threshold.what) {
    case LoadThreshold::Of::errors:
      return statistics.errorShare();
    case LoadThreshold::Of::shed:
      return statistics.shedShare();
    case LoadThreshold::Of::logins:
      return statistics.of(Endpoint::login).latency.at(threshold.share);
    case LoadThreshold::Of::messages:
      break;
  }
  return statistics.of(Endpoint::message).latency.at(threshold.share);
}

bool isKept(const LoadReport &report, const LoadThreshold &threshold) {
  return measuredBy(report, threshold) <= threshold.bound;
}

std::string durationText(double seconds) {
  char text[40];
  const double milliseconds = seconds * 1000;
  if (milliseconds < 9.95) {
    std::snprintf(text, sizeof text, "%.1f ms", milliseconds);
  } else if (milliseconds < 999.5) {
    std::snprintf(text, sizeof text, "%.0f ms", milliseconds);
  } else {
    std::snprintf(text, sizeof text, "%.1f s", seconds);
  }
  return text;
}

std::string textOf(const LoadReport &report) {
  std::string text = report.title.empty() ? "" : report.title + "\n";
  text += countText(report.devices) + " devices, " + durationText(report.length) + " from " +
          timeText(report.from) + " on, at " + row("%g", report.pace) + " times their pace, against";
  for (const std::string &service : report.services) text += " " + service;
  text += report.wasEnded ? "\nended before its time\n\n" : "\n\n";
  text += requestsOf(report) + latenciesOf(report) + failuresOf(report) + connectionsOf(report);
  for (const LoadThreshold &threshold : report.thresholds) {
    text += threshold.text + (isKept(report, threshold) ? ": kept, " : ": exceeded, ") +
            boundText(threshold, measuredBy(report, threshold)) + "\n";
  }
  return text;
}

std::string jsonOf(const LoadReport &report) {
  const LoadStatistics &statistics = report.statistics;
  Json json{{"title", report.title},         {"devices", report.devices}, {"services", report.services},
            {"from", timeText(report.from)}, {"pace", report.pace},       {"seconds", report.length},
            {"wasEnded", report.wasEnded}};
  for (const Endpoint endpoint : endpoints) json[nameOf(endpoint)] = jsonOf(statistics.of(endpoint));
  json["errors"] = statistics.errorShare();
  json["shed"] = statistics.shedShare();
  json["connections"] = {{"opened", statistics.opened + statistics.resumed},
                         {"resumed", statistics.resumed},
                         {"reused", statistics.reused},
                         {"most", statistics.mostConnected}};
  json["reportsWithoutToken"] = statistics.lostWithoutToken();
  json["reportsWithoutIdentifier"] = statistics.lostWithoutIdentifier();
  json["warmUp"] = {{"wanted", statistics.warmUpWanted}, {"done", statistics.warmUpDone}};
  json["late"] = latencyOf(statistics.lateness());
  json["bounds"] = Json::array();
  for (const LoadThreshold &threshold : report.thresholds) {
    json["bounds"].push_back({{"bound", threshold.text},
                              {"measured", measuredBy(report, threshold)},
                              {"kept", isKept(report, threshold)}});
  }
  json["timeline"] = Json::array();
  for (const LoadSecond &second : statistics.seconds()) {
    json["timeline"].push_back({{"planned", second.planned},
                                {"sent", second.sent},
                                {"shed", second.shed},
                                {"answered", second.answered},
                                {"failed", second.failed},
                                {"p50", second.median},
                                {"p99", second.p99},
                                {"max", second.slowest}});
  }
  return json.dump(1) + "\n";
}

}  // namespace kx::fleet
