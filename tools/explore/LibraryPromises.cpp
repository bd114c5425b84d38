#include "tools/explore/LibraryPromises.h"

#include <KXPublisher/KXPublisher.hpp>
#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "KXPublisher/providers/KXAsn.h"
#include "KXPublisher/providers/KXCarrier.h"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/publisher/KXLogger.h"
#include "KXPublisher/transport/KXNetworking.h"

namespace kx {

namespace {

constexpr const char *identifierOfDevices = R"("ifa":"6D92078A-8246-4BA4-AE5B-76104861E7DC")";

KXNetworking &networking() {
  return *KXLogger::sharedInstanceWithApiToken({}, {})->kxNetworking();
}

/// The delay after so many failures in a row, the first of which came after `delay`.
double delayAfter(double delay, unsigned failures) {
  using namespace constants;
  for (; failures > 0; --failures) {
    delay = delay == 0 ? accessTokenRequestTimeIntervalMinValue
                       : std::min(delay * accessTokenRequestTimeIntervalMultiplier,
                                  accessTokenRequestTimeIntervalMaxValue);
  }
  return delay;
}

std::string number(double value) {
  return std::to_string(value);
}

}  // namespace

LibraryPromises::LibraryPromises(bool usableIdentifier, Breaks breaks)
    : usableIdentifier_(usableIdentifier), breaks_(std::move(breaks)) {}

// ---- What reaches the service

void LibraryPromises::isSuspended(double time) {
  if (suspendedSince_ < 0) suspendedSince_ = time;
}

void LibraryPromises::isResumed(double time) {
  if (suspendedSince_ >= 0 && lastRefusal_ >= suspendedSince_) lastRefusal_ = std::max(lastRefusal_, time);
  suspendedSince_ = -1;
}

void LibraryPromises::connectionsAreLost(double time) {
  if (login_) login_->ends = std::min(login_->ends, time);
}

void LibraryPromises::loginArrives(const Login &login) {
  if (login_ && login.time < login_->ends) breaks_("a second login, while one is under way");
  const auto retry = networking().accessTokenRequestTimer();
  if (retry != nullptr && retry->isValid()) breaks_("a login, while a retry waits");
  const double delay = networking().lastAccessTokenRequestTimeInterval();
  const unsigned started = KXPublisher::diagnosis().loginsStarted;
  if (login_) {
    if (!isPossible(delay, started - loginsStarted_)) {
      breaks_("a delay of " + number(delay) + " s after one of " + number(delayBefore_) + " s");
    }
    if (delay != 0 && login.time < login_->time + delay) breaks_("a login before its delay has passed");
    // An answer that falls due while the process is suspended is taken later, perhaps only now.
    const bool isRefusedLate = suspendedSince_ >= 0 && lastRefusal_ >= suspendedSince_;
    if (delay == 0 && lastRefusal_ < login_->time && !isRefusedLate) {
      breaks_("a login after a success, though nothing was refused");
    }
  }
  login_ = login;
  loginsStarted_ = started;
  delayBefore_ = delay;
  if (login.token) tokens_.insert(*login.token);
}

/// Of those that were started since the last one that arrived, that one included, all have failed; or all but
/// that one.
bool LibraryPromises::isPossible(double delay, unsigned loginsSinceTheLast) const {
  if (loginsSinceTheLast == 0) return false;
  const bool lastHasSucceeded = login_ && login_->token;
  return delay == delayAfter(delayBefore_, loginsSinceTheLast) ||
         (lastHasSucceeded && delay == delayAfter(0, loginsSinceTheLast - 1));
}

void LibraryPromises::messageArrives(const std::string &text,
                                     const std::optional<std::string> &authorization) {
  if (!usableIdentifier_) breaks_("a message without a usable identifier");
  if (text.find(identifierOfDevices) == std::string::npos)
    breaks_("a message without the device's identifier: " + text);
  const auto id = text.find(R"("id":")");
  if (id == std::string::npos || !identifiers_.insert(text.substr(id, 42)).second) {
    breaks_("a message that was sent before, or has no identifier: " + text);
  }
  constexpr std::size_t prefix = 7;
  if (!authorization || authorization->compare(0, prefix, "Bearer ") != 0) {
    breaks_("a message without a token");
  } else if (tokens_.count(authorization->substr(prefix)) == 0) {
    breaks_("a message with a token that the service has not given");
  }
}

void LibraryPromises::tokenIsRefused(double time) {
  lastRefusal_ = std::max(lastRefusal_, time);
}

// ---- What the host sees

void LibraryPromises::lineIsLogged(const std::string &line) {
  constexpr std::array<const char *, 6> known{
      "[KX Error] Error getting access token: Error Domain=",
      "[KX Error] Error getting token. HTTP status: ",
      "[KX Error] getAccessToken received success status code ",
      "[KX Error] Error sending data: Error Domain=",
      "[KX Error] Error sending data. HTTP status: ",
      "[KX Error] Error sending data. Calling updateAccessToken:",
  };
  if (std::none_of(known.begin(), known.end(),
                   [&line](const char *start) { return line.rfind(start, 0) == 0; })) {
    breaks_("a line that no text prescribes: " + line);
  }
}

void LibraryPromises::look(const ReportModel &model, bool followsConnection) {
  lookAtReports(model);
  lookAtProviders(followsConnection);
}

void LibraryPromises::lookAtReports(const ReportModel &model) {
  const KXDiagnosis diagnosis = KXPublisher::diagnosis();
  if (diagnosis.reportsMade != model.made()) {
    breaks_(std::to_string(diagnosis.reportsMade) + " reports, and not " + std::to_string(model.made()));
  }
  if (diagnosis.messagesSent + diagnosis.reportsDropped != diagnosis.reportsMade) {
    breaks_("a report that was neither sent nor dropped");
  }
  const unsigned droppedWithoutToken = diagnosis.reportsHandedOver - diagnosis.messagesSent;
  if (tokenWasHeld_ && droppedWithoutToken != droppedWithoutToken_) {
    breaks_("a report that passed the gate, and was not sent, though there was a token");
  }
  droppedWithoutToken_ = droppedWithoutToken;
  tokenWasHeld_ = networking().accessToken().has_value();
}

void LibraryPromises::lookAtProviders(bool followsConnection) {
  const auto agrees = [this](const std::shared_ptr<KXData> &provider, const char *name) {
    const auto held = provider->data();
    if (held == nullptr) return;  // its first refresh was lost, and nothing has changed since
    const auto holds = KXNetworking::jsonForObject(*held->contents());
    const auto computes = KXNetworking::jsonForObject(*provider->computeData()->contents());
    if (holds != computes) {
      breaks_(std::string(name) + " does not hold what it would compute, but " + holds.value_or("nothing") +
              " instead of " + computes.value_or("nothing"));
    }
  };
  agrees(KXAsn::sharedInstance(), "KXAsn");
  agrees(KXCarrier::sharedInstance(), "KXCarrier");
  if (followsConnection) agrees(KXConnection::sharedInstance(), "KXConnection");
}

}  // namespace kx
