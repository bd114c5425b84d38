#include "diagnostics/Journal.h"

#include "KXPublisher/platform/Clock.h"
#include "KXPublisher/platform/Platform.h"
#include "diagnostics/Hostname.h"
#include "platform/foundation/SingleInstance.h"

namespace kx {

namespace {

using Argument = KXDiagnosis::Argument;
using Delivery = KXDiagnosis::Delivery;
using Login = KXDiagnosis::Login;
using Moment = KXDiagnosis::Moment;

/// The first report is due 5 s after the start: a main loop that has not been served long after has not run.
constexpr double longestStart = 15;  // seconds

bool isSuccess(long status) {
  return status >= 200 && status <= 299;
}

Argument kindOf(const std::optional<std::string> &argument) {
  if (!argument) return Argument::absent;
  return argument->empty() ? Argument::empty : Argument::given;
}

void endLogin(KXDiagnosis &diagnosis, Login how, long status, std::string error, Moment now) {
  diagnosis.login = how;
  diagnosis.loginStatus = status;
  diagnosis.loginError = std::move(error);
  diagnosis.loginEnded = now;
}

void endDelivery(KXDiagnosis &diagnosis, Delivery how, long status, std::string error, Moment now) {
  diagnosis.delivery = how;
  diagnosis.deliveryStatus = status;
  diagnosis.deliveryError = std::move(error);
  diagnosis.answered = now;
}

}  // namespace

Journal &Journal::shared() {
  return singleInstance([] { return Journal(); });
}

/// Calls `entry` with the diagnosis and the present moment.
template <class Entry>
void Journal::note(Entry entry) noexcept {
  try {
    const Moment now{Platform::current().clock().timeIntervalSince1970()};
    const std::lock_guard<std::mutex> lock(mutex_);
    entry(diagnosis_, now);
  } catch (...) {
    // Nothing else depends on it.
  }
}

// ---- The start

void Journal::entryCalled() noexcept {
  note([](KXDiagnosis &diagnosis, Moment) { ++diagnosis.entryCalls; });
}

void Journal::publisherMade() noexcept {
  note([](KXDiagnosis &diagnosis, Moment now) { diagnosis.publisherMade = now; });
}

void Journal::clientMade(const std::optional<std::string> &apiToken,
                         const std::optional<std::string> &hostname) noexcept {
  Argument host = kindOf(hostname);
  if (hostname && host == Argument::given && !isHostnameWithOrWithoutPort(*hostname))
    host = Argument::malformed;
  note([token = kindOf(apiToken), host](KXDiagnosis &diagnosis, Moment) {
    diagnosis.apiToken = token;
    diagnosis.hostname = host;
  });
}

void Journal::mainLoopServed() noexcept {
  note([](KXDiagnosis &diagnosis, Moment now) { diagnosis.mainLoopServed = now; });
}

void Journal::applicationMoved(bool toBackground) noexcept {
  note([toBackground](KXDiagnosis &diagnosis, Moment now) {
    diagnosis.inBackground = toBackground;
    diagnosis.mainLoopServed = now;
  });
}

// ---- The access token

void Journal::loginImpossible() noexcept {
  note([](KXDiagnosis &diagnosis, Moment now) { endLogin(diagnosis, Login::impossible, 0, "", now); });
}

void Journal::loginStarted() noexcept {
  note([](KXDiagnosis &diagnosis, Moment now) {
    diagnosis.login = Login::underWay;
    diagnosis.loginStarted = now;
    ++diagnosis.loginsStarted;
  });
}

void Journal::loginFailed(const Error &error) noexcept {
  note([&error](KXDiagnosis &diagnosis, Moment now) {
    endLogin(diagnosis, Login::failed, 0, error.description(), now);
  });
}

void Journal::loginRefused(long status) noexcept {
  note(
      [status](KXDiagnosis &diagnosis, Moment now) { endLogin(diagnosis, Login::refused, status, "", now); });
}

void Journal::loginWithoutToken(long status) noexcept {
  note([status](KXDiagnosis &diagnosis, Moment now) {
    endLogin(diagnosis, Login::withoutToken, status, "", now);
  });
}

void Journal::tokenReceived() noexcept {
  note([](KXDiagnosis &diagnosis, Moment now) {
    endLogin(diagnosis, Login::succeeded, 0, "", now);
    diagnosis.tokenReceived = now;
  });
}

void Journal::retryScheduled(double delay) noexcept {
  note([delay](KXDiagnosis &diagnosis, Moment now) { diagnosis.retryDue = Moment{now.at + delay}; });
}

void Journal::retryFired() noexcept {
  note([](KXDiagnosis &diagnosis, Moment now) {
    diagnosis.retryDue.reset();
    diagnosis.mainLoopServed = now;
  });
}

// ---- Reports and messages

void Journal::reportMade(KXDiagnosis::Identifier identifier) noexcept {
  note([identifier](KXDiagnosis &diagnosis, Moment now) {
    diagnosis.identifier = identifier;
    diagnosis.reportMade = now;
    ++diagnosis.reportsMade;
  });
}

void Journal::reportHandedOver() noexcept {
  note([](KXDiagnosis &diagnosis, Moment now) {
    diagnosis.handedOver = now;
    ++diagnosis.reportsHandedOver;
  });
}

void Journal::reportDropped(KXDiagnosis::Drop reason) noexcept {
  note([reason](KXDiagnosis &diagnosis, Moment now) {
    diagnosis.drop = reason;
    diagnosis.reportDropped = now;
    ++diagnosis.reportsDropped;
  });
}

void Journal::messageSent() noexcept {
  note([](KXDiagnosis &diagnosis, Moment now) {
    diagnosis.delivery = Delivery::underWay;
    diagnosis.sent = now;
    ++diagnosis.messagesSent;
  });
}

void Journal::messageFailed(const Error &error) noexcept {
  note([&error](KXDiagnosis &diagnosis, Moment now) {
    endDelivery(diagnosis, Delivery::failed, 0, error.description(), now);
  });
}

void Journal::messageAnswered(long status) noexcept {
  note([status](KXDiagnosis &diagnosis, Moment now) {
    const bool accepted = isSuccess(status);
    endDelivery(diagnosis, accepted ? Delivery::accepted : Delivery::refused, status, "", now);
    if (accepted) ++diagnosis.messagesAccepted;
  });
}

// ---- The diagnosis

KXDiagnosis Journal::diagnosis() const {
  KXDiagnosis diagnosis;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    diagnosis = diagnosis_;
  }
  // One that is made here would come before the host's options for it.
  Platform *const platform = Platform::currentIfMade();
  if (platform == nullptr) return diagnosis;
  diagnosis.time = platform->clock().timeIntervalSince1970();
  diagnosis.optionsCameTooLate = platform->hostOptionsCameTooLate();
  for (KXDiagnosis::When *when :
       {&diagnosis.publisherMade, &diagnosis.mainLoopServed, &diagnosis.loginStarted, &diagnosis.loginEnded,
        &diagnosis.tokenReceived, &diagnosis.retryDue, &diagnosis.reportMade, &diagnosis.reportDropped,
        &diagnosis.handedOver, &diagnosis.sent, &diagnosis.answered}) {
    if (*when) (*when)->age = diagnosis.time - (*when)->at;
  }
  if (diagnosis.mainLoopServed) {
    diagnosis.mainLoop = KXDiagnosis::MainLoop::hasRun;
  } else if (diagnosis.publisherMade && diagnosis.publisherMade->age > longestStart) {
    diagnosis.mainLoop = KXDiagnosis::MainLoop::hasNotRun;
  }
  return diagnosis;
}

}  // namespace kx
