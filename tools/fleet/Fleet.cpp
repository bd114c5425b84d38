#include "tools/fleet/Fleet.h"

#include <algorithm>

namespace kx::fleet {

namespace {

enum : std::uint64_t { forUpdate = 0xf1ee7, forUpdateTime };

}  // namespace

Fleet::Fleet(const FleetScenario &scenario)
    : scenario_(scenario),
      begins_(milliseconds(scenario.before)),
      connectionKept_(milliseconds(scenario.connectionKept)),
      users_(scenario.use, scenario.seed, begins_),
      service_(scenario.service, scenario.seed, begins_),
      timeline_(begins_, static_cast<std::size_t>(scenario.length)),
      wheel_(begins_ + milliseconds(scenario.length)),
      members_(scenario.devices) {
  for (current_ = 0; current_ < scenario.devices; ++current_) {
    members_[current_].device.hasUsableIdentifier = users_.hasUsableIdentifier(current_);
    scheduleForSession(users_.nextSession(current_, 0, 0), Happening::sessionBegins);
    for (std::size_t i = 0; i < scenario.updates.size(); ++i) {
      const auto &update = scenario.updates[i];
      if (drawnShare(scenario.seed, current_, i, forUpdate) >= update.share) continue;
      const double after = update.within * drawnShare(scenario.seed, current_, i, forUpdateTime);
      scheduleForSession(begins_ + milliseconds(update.at + after), Happening::updateArrives);
    }
  }
}

std::vector<FleetSecond> Fleet::live() {
  wheel_.run([this](std::uint32_t device) { __builtin_prefetch(&members_[device], 1); },
             [this](const EventWheel::Event &event, Time now) { happens(event, now); });
  return timeline_.seconds();
}

void Fleet::happens(const EventWheel::Event &event, Time now) {
  current_ = event.device;
  Member &member = members_[current_];
  const bool isOfSession = event.number == static_cast<std::uint8_t>(member.session);
  switch (event.happening) {
    case Happening::sessionBegins:
      if (!isOfSession) return;
      return beginSession(now, !member.isRunning || users_.beginsWithNewProcess(current_, member.session));
    case Happening::sessionEnds:
      if (isOfSession) endSession(now);
      return;
    case Happening::isSuspended:
      if (isOfSession) member.device.isSuspended();
      return;
    case Happening::updateArrives:
      return beginSession(now, /*newProcess=*/true);
    default:
      if (event.number == member.device.process()) member.device.happens(event.happening, now, *this);
      return;
  }
}

// ---- What its user does

void Fleet::beginSession(Time now, bool newProcess) {
  Member &member = members_[current_];
  ++member.session;  // nothing that was scheduled for the one before happens now
  if (newProcess) {
    member.isRunning = true;
    member.device.launches(now, *this);
  } else {
    if (member.device.suspended()) member.device.isResumed(now, *this);
    member.device.entersForeground(now, *this);
  }
  scheduleForSession(now + users_.lengthOf(current_, member.session), Happening::sessionEnds);
}

void Fleet::endSession(Time now) {
  Member &member = members_[current_];
  member.device.entersBackground(now, *this);
  const Time suspended = now + milliseconds(scenario_.use.suspendedAfter);
  scheduleForSession(suspended, Happening::isSuspended);
  const Time next = users_.nextSession(current_, member.session, now);
  scheduleForSession(std::max(next, suspended + 1), Happening::sessionBegins);
}

void Fleet::scheduleForSession(Time at, Happening happening) {
  wheel_.schedule(at, Phase::life, current_, happening,
                  static_cast<std::uint8_t>(members_[current_].session));
}

// ---- What the device does

void Fleet::schedule(Time at, Phase phase, Happening happening) {
  wheel_.schedule(at, phase, current_, happening, members_[current_].device.process());
}

Answer Fleet::login(Time now) {
  const Answer answer = service_.login(current_, now);
  FleetSecond &second = timeline_.at(now);
  ++second.logins;
  if (answer.outcome != Answer::Outcome::accepted) ++second.loginsFailed;
  isSent(now, answer.after);
  return answer;
}

Answer Fleet::message(Time now, Time tokenIssuedAt) {
  const Answer answer = service_.message(current_, now, tokenIssuedAt);
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
  Time &kept = members_[current_].connectionUntil;
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
