#include "tools/fleet/LoadStatistics.h"

namespace kx::fleet {

namespace {

double shareOf(std::uint64_t part, std::uint64_t all) {
  return all == 0 ? 0 : static_cast<double>(part) / static_cast<double>(all);
}

}  // namespace

void LoadStatistics::isPlanned(Endpoint endpoint, double now) {
  ++at(endpoint).planned;
  ++second(now).planned;
}

void LoadStatistics::isSent(Endpoint endpoint, double now, double late) {
  ++at(endpoint).sent;
  ++second(now).sent;
  lateness_.add(late);
}

void LoadStatistics::isShed(Endpoint endpoint, double now, bool byRate) {
  ++(byRate ? at(endpoint).shedByRate : at(endpoint).shedByConnections);
  ++second(now).shed;
}

void LoadStatistics::isAnswered(Endpoint endpoint, double now, long status, double latency) {
  EndpointStatistics &statistics = at(endpoint);
  const bool isSuccess = status >= 200 && status <= 299;
  ++statistics.answered;
  ++statistics.statuses[status];
  statistics.latency.add(latency);
  ++second(now).answered;
  latencyOfSecond_.add(latency);
  if (isSuccess) return;
  ++statistics.failed;
  ++second(now).failed;
}

void LoadStatistics::isNotAnswered(Endpoint endpoint, double now, const std::string &problem) {
  ++at(endpoint).failed;
  ++at(endpoint).problems[problem];
  ++second(now).failed;
}

void LoadStatistics::reportIsLost(Lost why) {
  ++(why == Lost::noToken ? lostWithoutToken_ : lostWithoutIdentifier_);
}

LoadSecond &LoadStatistics::second(double now) {
  const std::size_t wanted = static_cast<std::size_t>(now < 0 ? 0 : now) + 1;
  if (wanted > seconds_.size()) {
    if (!seconds_.empty()) close(seconds_.back(), latencyOfSecond_);
    latencyOfSecond_ = LatencyHistogram();
    seconds_.resize(wanted);
  }
  return seconds_.back();
}

void LoadStatistics::close(LoadSecond &second, const LatencyHistogram &latency) {
  second.median = latency.at(0.5);
  second.p99 = latency.at(0.99);
  second.slowest = latency.greatest();
}

std::vector<LoadSecond> LoadStatistics::seconds() const {
  std::vector<LoadSecond> seconds = seconds_;
  if (!seconds.empty()) close(seconds.back(), latencyOfSecond_);
  return seconds;
}

std::uint64_t LoadStatistics::sum(std::uint64_t EndpointStatistics::*number) const {
  std::uint64_t sum = 0;
  for (const EndpointStatistics &endpoint : endpoints_) sum += endpoint.*number;
  return sum;
}

std::uint64_t LoadStatistics::shed() const {
  return sum(&EndpointStatistics::shedByRate) + sum(&EndpointStatistics::shedByConnections);
}

double LoadStatistics::errorShare() const {
  return shareOf(sum(&EndpointStatistics::failed), sum(&EndpointStatistics::sent));
}

double LoadStatistics::shedShare() const {
  return shareOf(shed(), sum(&EndpointStatistics::planned));
}

}  // namespace kx::fleet
