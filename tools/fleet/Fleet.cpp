#include "tools/fleet/Fleet.h"

namespace kx::fleet {

Fleet::Fleet(const FleetScenario &scenario)
    : FleetLives(scenario),
      connectionKept_(milliseconds(scenario.connectionKept)),
      service_(scenario.service, scenario.seed, begins_),
      timeline_(begins_, static_cast<std::size_t>(scenario.length)),
      connectionsUntil_(scenario.devices, never) {}

std::vector<FleetSecond> Fleet::live() {
  liveUntil(begins_ + milliseconds(scenario_.length));
  return timeline_.seconds();
}

Answer Fleet::login(Time now) {
  const Answer answer = service_.login(current(), now);
  FleetSecond &second = timeline_.at(now);
  ++second.logins;
  if (answer.outcome != Answer::Outcome::accepted) ++second.loginsFailed;
  isSent(now, answer.after);
  return answer;
}

Answer Fleet::message(Time now, Time tokenIssuedAt) {
  const Answer answer = service_.message(current(), now, tokenIssuedAt);
  FleetSecond &second = timeline_.at(now);
  ++second.messages;
  if (answer.outcome == Answer::Outcome::refused) ++second.messagesRefused;
  if (answer.outcome == Answer::Outcome::failed) ++second.messagesFailed;
  isSent(now, answer.after);
  return answer;
}

void Fleet::isSent(Time now, Time answeredAfter) {
  timeline_.requestIsOpen(now, answeredAfter);
  const Time until = now + answeredAfter + connectionKept_;
  Time &kept = connectionsUntil_[current()];
  // Not the one that another request is still using.
  if (connectionKept_ > 0 && now <= kept && now >= kept - connectionKept_) {
    timeline_.connectionIsOpen(kept, until - kept);
  } else {
    ++timeline_.at(now).connections;
    timeline_.connectionIsOpen(now, until - now);
  }
  kept = until;
}

void Fleet::reportIsLost(Time now, Lost why) {
  FleetSecond &second = timeline_.at(now);
  ++(why == Lost::noToken ? second.reportsWithoutToken : second.reportsWithoutIdentifier);
}

}  // namespace kx::fleet
