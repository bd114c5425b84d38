#include "tools/fleet/FleetLives.h"

#include <algorithm>

namespace kx::fleet {

namespace {

enum : std::uint64_t { forUpdate = 0xf1ee7, forUpdateTime };

}  // namespace

FleetLives::FleetLives(const FleetScenario &scenario)
    : scenario_(scenario),
      begins_(milliseconds(scenario.before)),
      users_(scenario.use, scenario.seed, begins_),
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

void FleetLives::liveUntil(Time until) {
  wheel_.runUntil(
      until, [this](std::uint32_t device) { __builtin_prefetch(&members_[device], 1); },
      [this](const EventWheel::Event &event, Time now) { happens(event, now); });
}

void FleetLives::tell(std::uint32_t device, std::uint8_t process, Happening happening, Time now) {
  current_ = device;
  if (process == processOf(device)) members_[device].device.happens(happening, now, *this);
}

void FleetLives::happens(const EventWheel::Event &event, Time now) {
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

void FleetLives::beginSession(Time now, bool newProcess) {
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

void FleetLives::endSession(Time now) {
  Member &member = members_[current_];
  member.device.entersBackground(now, *this);
  const Time suspended = now + milliseconds(scenario_.use.suspendedAfter);
  scheduleForSession(suspended, Happening::isSuspended);
  const Time next = users_.nextSession(current_, member.session, now);
  scheduleForSession(std::max(next, suspended + 1), Happening::sessionBegins);
}

void FleetLives::scheduleForSession(Time at, Happening happening) {
  wheel_.schedule(at, Phase::life, current_, happening,
                  static_cast<std::uint8_t>(members_[current_].session));
}

void FleetLives::schedule(Time at, Phase phase, Happening happening) {
  wheel_.schedule(at, phase, current_, happening, members_[current_].device.process());
}

}  // namespace kx::fleet
