#include "tools/fleet/LoadRun.h"

#include <algorithm>
#include <utility>

namespace kx::fleet {

namespace {

constexpr std::chrono::milliseconds step(1);  // the plan's, on this machine's time
constexpr std::size_t warmUpAtATime = 32;
constexpr double longestBurst = 0.05;  // seconds of the rate

using Connection = LoadOutcome::Connection;

long statusOf(const LoadOutcome &outcome) {
  const auto *const answer = dynamic_cast<const HTTPURLResponse *>(outcome.response.get());
  return answer == nullptr ? 0 : answer->statusCode();
}

bool isGood(long status) {
  return status >= 200 && status <= 299;
}

LoadTransport::Limits limitsOf(const LoadOptions &options, std::size_t connections) {
  LoadTransport::Limits limits;
  limits.connections = connections;
  limits.sessions = options.sessions;
  const double linger = static_cast<double>(CurlSettings().linger.count()) / options.pace;
  limits.linger = std::chrono::milliseconds(static_cast<long>(linger));
  return limits;
}

std::vector<LoadRequests> requestsFor(const std::vector<LoadService> &services, const LoadOptions &options) {
  std::vector<LoadRequests> requests;
  requests.reserve(services.size());
  for (const LoadService &service : services) requests.emplace_back(service.hostname, options.apiToken);
  return requests;
}

Time endOf(const FleetScenario &scenario, const LoadOptions &options) {
  const double length = std::min(options.duration * options.pace, scenario.length - options.from);
  return milliseconds(scenario.before + options.from + length);
}

}  // namespace

LoadRun::LoadRun(const FleetScenario &scenario, const LoadOptions &options, std::vector<LoadService> services,
                 LoadMessage message, std::size_t connections, std::FILE *results)
    : options_(options),
      seed_(scenario.seed),
      message_(std::move(message)),
      plan_(scenario, options.from),
      end_(endOf(scenario, options)),
      withToken_(LoadPlan::devicesWithToken(scenario, options.from, end_)),
      requests_(requestsFor(services, options)),
      results_(results),
      reached_(plan_.from()),
      transport_(std::move(services), options.certificateAuthorityFile, limitsOf(options, connections)) {}

void LoadRun::warmUp(const std::function<bool()> &isEnding) {
  statistics_.warmUpWanted = withToken_.size();
  began_ = allowedSince_ = Clock::now();
  std::size_t next = 0;
  std::size_t answered = 0;
  while (answered < withToken_.size() && elapsed() < options_.warmUp && !isEnding()) {
    while (next < withToken_.size() && next - answered < warmUpAtATime && isWithinRate()) {
      const std::uint32_t device = withToken_[next++];
      const std::uint8_t process = plan_.processAtBeginning(device);
      const auto then = [this, device, process, &answered](const LoadOutcome &outcome) {
        ++answered;
        if (keepToken(device, process, outcome)) ++statistics_.warmUpDone;
      };
      if (!transport_.send(device, process, requestsOf(device).login(), then)) ++answered;
    }
    transport_.turn(step);
  }
  transport_.endAll();
}

void LoadRun::run(const std::function<bool()> &isEnding, const std::function<void(double)> &tell) {
  began_ = allowedSince_ = Clock::now();
  allowance_ = 0;
  for (double told = 0; !isEnding() && reached_ < end_; transport_.turn(step)) {
    reached_ = std::min(fleetTime() + 1, end_);
    plan_.runUntil(reached_, *this);
    if (elapsed() < told + 1) continue;
    tell(told = elapsed());
  }
  length_ = elapsed();
  isOver_ = true;
  while (transport_.openRequests() > 0 && elapsed() < length_ + options_.grace) transport_.turn(step);
  transport_.endAll();
  statistics_.mostConnected = transport_.mostConnected();
}

bool LoadRun::sendLogin(std::uint32_t device, std::uint8_t process, Time now) {
  return send(Endpoint::login, device, process, now, requestsOf(device).login(),
              [this, device, process](const LoadOutcome &outcome) {
                plan_.loginIsAnswered(device, process, keepToken(device, process, outcome), fleetTime());
              });
}

bool LoadRun::sendMessage(std::uint32_t device, std::uint8_t process, Time now) {
  const auto token = tokens_.find(device);
  if (token == tokens_.end() || token->second.process != process) {
    reportIsLost(Lost::noToken);  // of before the beginning; the warm-up has not brought it another one
    return false;
  }
  const std::string id = LoadMessage::newId();
  LoadRequest request = requestsOf(device).message(message_.of(seed_, device, id), token->second.text);
  const bool isSent = send(Endpoint::message, device, process, now, std::move(request),
                           [this, device, process, id](const LoadOutcome &outcome) {
                             const long status = statusOf(outcome);
                             writeResult(id, status);
                             if (status == 403) plan_.tokenIsRefused(device, process, fleetTime());
                           });
  return isSent;
}

bool LoadRun::isWithinRate() {
  if (!options_.rate) return true;
  const auto now = Clock::now();
  const double passed = std::chrono::duration<double>(now - std::exchange(allowedSince_, now)).count();
  allowance_ = std::min(allowance_ + passed * *options_.rate, std::max(1.0, *options_.rate * longestBurst));
  if (allowance_ < 1) return false;
  --allowance_;
  return true;
}

bool LoadRun::send(Endpoint endpoint, std::uint32_t device, std::uint8_t process, Time time,
                   LoadRequest request, std::function<void(const LoadOutcome &)> then) {
  if (isOver_) return false;
  const double planned = whenPlanned(time);
  const double now = elapsed();
  statistics_.isPlanned(endpoint, now);
  if (!isWithinRate()) {
    statistics_.isShed(endpoint, now, /*byRate=*/true);
    return false;
  }
  const bool isSent = transport_.send(device, process, std::move(request),
                                      [this, endpoint, planned, then = std::move(then)](const auto &outcome) {
                                        isDone(endpoint, planned, outcome);
                                        then(outcome);
                                      });
  if (isSent) {
    statistics_.isSent(endpoint, now, now - planned);
  } else {
    statistics_.isShed(endpoint, now, /*byRate=*/false);
  }
  return isSent;
}

void LoadRun::isDone(Endpoint endpoint, double planned, const LoadOutcome &outcome) {
  const double now = elapsed();
  const long status = statusOf(outcome);
  if (status != 0) {
    statistics_.isAnswered(endpoint, now, status, now - planned);
  } else {
    statistics_.isNotAnswered(endpoint, now, outcome.problem);
  }
  if (outcome.connection == Connection::opened) ++statistics_.opened;
  if (outcome.connection == Connection::resumed) ++statistics_.resumed;
  if (outcome.connection == Connection::reused) ++statistics_.reused;
}

bool LoadRun::keepToken(std::uint32_t device, std::uint8_t process, const LoadOutcome &outcome) {
  if (!isGood(statusOf(outcome))) return false;
  const auto &fields = dynamic_cast<const HTTPURLResponse &>(*outcome.response).allHeaderFields();
  const auto token = fields.find("set-authorization");
  if (token == fields.end()) return false;
  tokens_.insert_or_assign(device, Token{process, token->second});
  return true;
}

void LoadRun::writeResult(const std::string &id, long status) {
  if (results_ == nullptr) return;
  const std::string answer = status == 0 ? "null" : std::to_string(status);
  std::fprintf(results_, "{\"id\": \"%s\", \"status\": %s}\n", id.c_str(), answer.c_str());
}

double LoadRun::elapsed() const {
  return std::chrono::duration<double>(Clock::now() - began_).count();
}

Time LoadRun::fleetTime() const {
  const double passed = elapsed() * options_.pace * 1000;
  const double left = end_ - plan_.from();
  return std::max(reached_, plan_.from() + static_cast<Time>(std::min(passed, left)));
}

double LoadRun::whenPlanned(Time time) const {
  return (time - plan_.from()) / 1000.0 / options_.pace;
}

}  // namespace kx::fleet
