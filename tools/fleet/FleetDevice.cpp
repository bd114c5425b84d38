#include "tools/fleet/FleetDevice.h"

#include <KXPublisher/KXPublisher.hpp>

#include "KXPublisher/transport/KXLoginDelays.h"

namespace kx::fleet {

namespace {

constexpr Time early = milliseconds(constants::loggingFirstTimeDelay);
constexpr Time period = milliseconds(constants::loggingTimeInterval);

}  // namespace

void FleetDevice::launches(Time now, Surroundings &surroundings) {
  FleetDevice started;
  started.hasUsableIdentifier = hasUsableIdentifier;
  started.process_ = static_cast<std::uint8_t>(process_ + 1);
  *this = started;
  logsIn(now, surroundings);
  scheduleReports(now, surroundings);
}

void FleetDevice::entersBackground(Time now, Surroundings &surroundings) {
  nextRepeatedReport_ = never;
  report(now, surroundings);
}

void FleetDevice::entersForeground(Time now, Surroundings &surroundings) {
  scheduleReports(now, surroundings);
}

void FleetDevice::isResumed(Time now, Surroundings &surroundings) {
  suspended_ = false;
  if (loginHasSucceeded_) loginSucceeds();
  if (loginHasFailed_) loginFails(now, surroundings);
  const bool retryIsDue = retryAt_ != never && retryAt_ <= now;
  if (retryIsDue) retryAt_ = never;
  if (retryIsDue || tokenWasRefused_) decidesRefresh(now, surroundings);
  loginHasSucceeded_ = loginHasFailed_ = tokenWasRefused_ = false;

  for (; earlyReportsDue_ > 0; --earlyReportsDue_) report(now, surroundings);
  if (nextRepeatedReport_ != never && nextRepeatedReport_ <= now) reportsRepeatedly(now, surroundings);
}

void FleetDevice::happens(Happening happening, Time now, Surroundings &surroundings) {
  if (suspended_) return postpones(happening);
  switch (happening) {
    case Happening::loginSucceeds:
      return loginSucceeds();
    case Happening::loginFails:
      return loginFails(now, surroundings);
    case Happening::tokenIsRefused:
      return decidesRefresh(now, surroundings);
    case Happening::retryIsDue:
      retryAt_ = never;
      return decidesRefresh(now, surroundings);
    case Happening::earlyReport:
      return report(now, surroundings);
    case Happening::repeatedReport:
      // It may be one that the background has ended, or a return has replaced.
      if (nextRepeatedReport_ == now) reportsRepeatedly(now, surroundings);
      return;
    default:
      return;
  }
}

/// A retry and a repeated report are seen to be due by their times.
void FleetDevice::postpones(Happening happening) {
  switch (happening) {
    case Happening::loginSucceeds:
      loginHasSucceeded_ = true;
      return;
    case Happening::loginFails:
      loginHasFailed_ = true;
      return;
    case Happening::tokenIsRefused:
      tokenWasRefused_ = true;
      return;
    case Happening::earlyReport:
      ++earlyReportsDue_;
      return;
    default:
      return;
  }
}

// ---- Reports

void FleetDevice::scheduleReports(Time now, Surroundings &surroundings) {
  surroundings.schedule(now + early, Phase::reports, Happening::earlyReport);
  nextRepeatedReport_ = now + period;
  surroundings.schedule(nextRepeatedReport_, Phase::reports, Happening::repeatedReport);
}

void FleetDevice::reportsRepeatedly(Time now, Surroundings &surroundings) {
  report(now, surroundings);
  // A late one shifts no later one, and those that were missed are not made up for.
  nextRepeatedReport_ += ((now - nextRepeatedReport_) / period + 1) * period;
  surroundings.schedule(nextRepeatedReport_, Phase::reports, Happening::repeatedReport);
}

void FleetDevice::report(Time now, Surroundings &surroundings) {
  if (!hasUsableIdentifier) return surroundings.reportIsLost(now, Lost::noIdentifier);
  if (tokenIssuedAt_ == never) return surroundings.reportIsLost(now, Lost::noToken);
  const Answer answer = surroundings.message(now, tokenIssuedAt_);
  if (answer.outcome == Answer::Outcome::refused) {
    surroundings.schedule(now + answer.after, Phase::answers, Happening::tokenIsRefused);
  }
}

// ---- The token

/// The library ignores a refresh that was asked for before the token came, too. Here none is: it is decided
/// when it is asked for.
void FleetDevice::decidesRefresh(Time now, Surroundings &surroundings) {
  if (loginSentAt_ != never) return;
  if (retryAt_ > now) return;
  logsIn(now, surroundings);
}

void FleetDevice::logsIn(Time now, Surroundings &surroundings) {
  loginSentAt_ = now;
  const Answer answer = surroundings.login(now);
  if (answer.outcome == Answer::Outcome::later) return;
  surroundings.schedule(
      now + answer.after, Phase::answers,
      answer.outcome == Answer::Outcome::accepted ? Happening::loginSucceeds : Happening::loginFails);
}

void FleetDevice::loginSucceeds() {
  tokenIssuedAt_ = loginSentAt_;
  loginSentAt_ = never;
  delay_ = 0;
}

void FleetDevice::loginFails(Time now, Surroundings &surroundings) {
  loginSentAt_ = never;
  delay_ = static_cast<std::uint16_t>(constants::accessTokenRequestTimeIntervalAfter(delay_));
  retryAt_ = now + milliseconds(delay_);
  surroundings.schedule(retryAt_, Phase::decisions, Happening::retryIsDue);
}

}  // namespace kx::fleet
