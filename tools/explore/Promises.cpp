#include "tools/explore/Promises.h"

#include <KXPublisher/KXPublisher.hpp>
#include <algorithm>
#include <array>

#include "KXPublisher/providers/KXAsn.h"
#include "KXPublisher/providers/KXCarrier.h"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/publisher/KXLogger.h"
#include "KXPublisher/transport/KXNetworking.h"

namespace kx {

namespace {

constexpr const char *usableIdentifier = R"("ifa":"6D92078A-8246-4BA4-AE5B-76104861E7DC")";

KXNetworking &networking() {
  return *KXLogger::sharedInstanceWithApiToken({}, {})->kxNetworking();
}

double delayAfter(double delay) {
  using namespace constants;
  if (delay == 0) return accessTokenRequestTimeIntervalMinValue;
  return std::min(delay * accessTokenRequestTimeIntervalMultiplier, accessTokenRequestTimeIntervalMaxValue);
}

std::string number(double value) {
  return std::to_string(value);
}

}  // namespace

Promises::Promises(SimulatedPlatform &device, const Story &story)
    : device_(device), usableIdentifier_(story.identifier == 0) {}

void Promises::breaks(const std::string &what) {
  if (!broken_) broken_ = what + " (at " + number(device_.scheduler.uptime()) + " s)";
}

// ---- What reaches the service

void Promises::requestArrives(const SimulatedRequest &request, const SimulatedReply &reply) {
  if (request.path() == SimulatedCollectionService::loginPath) {
    loginArrives(request, reply);
  } else {
    messageArrives(request, reply);
  }
}

void Promises::isSuspended() {
  if (suspendedSince_ < 0) suspendedSince_ = device_.scheduler.uptime();
}

void Promises::isResumed() {
  if (suspendedSince_ >= 0 && lastRefusal_ >= suspendedSince_) {
    lastRefusal_ = std::max(lastRefusal_, device_.scheduler.uptime());
  }
  suspendedSince_ = -1;
}

void Promises::connectionsAreLost() {
  loginEnds_ = std::min(loginEnds_, device_.scheduler.uptime());
  networkWasLost_ = true;
}

void Promises::loginArrives(const SimulatedRequest &request, const SimulatedReply &reply) {
  if (request.time < loginEnds_) breaks("a second login, while one is under way");
  const auto retry = networking().accessTokenRequestTimer();
  if (retry != nullptr && retry->isValid()) breaks("a login, while a retry waits");
  const double delay = networking().lastAccessTokenRequestTimeInterval();
  if (anyLogin_) {
    if (delay == 0) {
      // An answer that falls due while the process is suspended is taken later, perhaps only now.
      const bool isRefusedLate = suspendedSince_ >= 0 && lastRefusal_ >= suspendedSince_;
      if (lastRefusal_ < loginStarted_ && !isRefusedLate) {
        breaks("a login after a success, though nothing was refused");
      }
    } else {
      double expected = delayAfter(delayBefore_);
      while (networkWasLost_ && expected < delay) expected = delayAfter(expected);
      if (delay != expected) {
        breaks("a delay of " + number(delay) + " s after one of " + number(delayBefore_) + " s");
      }
      if (request.time < loginStarted_ + delay) breaks("a login before its delay has passed");
    }
  }
  anyLogin_ = true;
  networkWasLost_ = !device_.reachability.carriesRequests();
  delayBefore_ = delay;
  loginStarted_ = request.time;
  loginEnds_ = request.time + (reply.never ? 60.0 : reply.latency.value_or(device_.service.latency));
}

void Promises::messageArrives(const SimulatedRequest &request, const SimulatedReply &reply) {
  const std::string text = request.text().value_or("");
  if (!usableIdentifier_) breaks("a message without a usable identifier");
  if (text.find(usableIdentifier) == std::string::npos)
    breaks("a message without the device's identifier: " + text);
  const auto id = text.find(R"("id":")");
  if (id == std::string::npos || !identifiers_.insert(text.substr(id, 42)).second) {
    breaks("a message that was sent before, or has no identifier: " + text);
  }
  const auto authorization = request.header("Authorization");
  if (!authorization || authorization->rfind("Bearer ", 0) != 0) breaks("a message without a token");
  if (reply.statusCode == 403 && !reply.error && !reply.never && reply.isHTTP) {
    lastRefusal_ = std::max(lastRefusal_, request.time + reply.latency.value_or(device_.service.latency));
  }
}

// ---- When all is quiet

void Promises::look(const ReportModel &model) {
  lookAtReports(model);
  lookAtProviders();
  lookAtCounts();
  lookAtLog();
}

void Promises::lookAtReports(const ReportModel &model) {
  const KXDiagnosis diagnosis = KXPublisher::diagnosis();
  if (diagnosis.reportsMade != model.made()) {
    breaks(std::to_string(diagnosis.reportsMade) + " reports, and not " + std::to_string(model.made()));
  }
  if (diagnosis.messagesSent + diagnosis.reportsDropped != diagnosis.reportsMade) {
    breaks("a report that was neither sent nor dropped");
  }
  const unsigned droppedWithoutToken = diagnosis.reportsHandedOver - diagnosis.messagesSent;
  if (tokenWasHeld_ && droppedWithoutToken != droppedWithoutToken_) {
    breaks("a report that passed the gate, and was not sent, though there was a token");
  }
  droppedWithoutToken_ = droppedWithoutToken;
  tokenWasHeld_ = networking().accessToken().has_value();
}

void Promises::lookAtProviders() {
  const auto agrees = [this](const std::shared_ptr<KXData> &provider, const char *name) {
    const auto held = provider->data();
    if (held == nullptr) return;  // its first refresh was lost, and nothing has changed since
    const auto computed = provider->computeData();
    if (KXNetworking::jsonForObject(*held->contents()) !=
        KXNetworking::jsonForObject(*computed->contents())) {
      breaks(std::string(name) + " does not hold what it would compute");
    }
  };
  agrees(KXAsn::sharedInstance(), "KXAsn");
  agrees(KXCarrier::sharedInstance(), "KXCarrier");
  // It follows no changes in the background, and hears of none while the user drags.
  if (!device_.application->inBackground && !device_.runLoopService.isTracking()) {
    agrees(KXConnection::sharedInstance(), "KXConnection");
  }
}

void Promises::lookAtCounts() {
  const auto counts = device_.counts();
  if (counts.readyTasks != 0 || counts.begunTasks != 0) breaks("a task is left");
  if (counts.backgroundTasks != 0) breaks("a background task has not ended");
  const auto &ended = device_.application->endedIdentifiers;
  for (std::size_t i = 0; i < ended.size(); ++i) {
    if (ended[i] != invalidBackgroundTask && std::count(ended.begin(), ended.end(), ended[i]) != 1) {
      breaks("a background task was ended twice");
    }
  }
  if (registrations_ == 0) registrations_ = counts.registrations;
  if (counts.registrations != registrations_) breaks("registrations with the notification centre grow");
  if (counts.telephonyObjects > 1) breaks("a telephony object is left");
  if (counts.sessions > counts.requests) breaks("a session is left");
}

void Promises::lookAtLog() {
  constexpr std::array<const char *, 6> known{
      "[KX Error] Error getting access token: Error Domain=",
      "[KX Error] Error getting token. HTTP status: ",
      "[KX Error] getAccessToken received success status code ",
      "[KX Error] Error sending data: Error Domain=",
      "[KX Error] Error sending data. HTTP status: ",
      "[KX Error] Error sending data. Calling updateAccessToken:",
  };
  const auto &lines = device_.consoleService.lines;
  for (; linesSeen_ < lines.size(); ++linesSeen_) {
    const std::string &line = lines[linesSeen_];
    if (std::none_of(known.begin(), known.end(),
                     [&line](const char *start) { return line.rfind(start, 0) == 0; })) {
      breaks("a line that no text prescribes: " + line);
    }
  }
}

}  // namespace kx
