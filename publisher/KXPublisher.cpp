#include "KXPublisher/KXPublisher.hpp"

#include <atomic>

#include "KXPublisher/diagnostics/KXLog.h"
#include "KXPublisher/platform/Application.h"
#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/NotificationCenter.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/RunLoop.h"
#include "KXPublisher/providers/KXAsn.h"
#include "KXPublisher/providers/KXCarrier.h"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/providers/KXLocation.h"
#include "KXPublisher/publisher/KXLogger.h"
#include "diagnostics/Journal.h"
#include "platform/EndedException.h"
#include "platform/foundation/SingleInstance.h"

namespace kx {

using namespace constants;

namespace {

/// Used as it stands, trailing dot included.
constexpr const char *backgroundTaskName = "com.brindlecove.KXPublisher.";

constexpr const char *identifierOfLimitedTracking = "00000000-0000-0000-0000-000000000000";

std::optional<std::string> optionalString(const char *text) {
  return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

/// The message's advertising identifier. A message passes the send gate only with a usable one.
KXDiagnosis::Identifier identifierOf(const Dictionary &message) {
  const Value *const ifa = message.find(dataKeyIfa);
  if (ifa == nullptr) return KXDiagnosis::Identifier::absent;
  if (*ifa == Value("")) return KXDiagnosis::Identifier::empty;
  if (*ifa == Value(identifierOfLimitedTracking)) return KXDiagnosis::Identifier::allZeros;
  return KXDiagnosis::Identifier::usable;
}

}  // namespace

std::shared_ptr<KXPublisher> KXPublisher::sharedInstanceWithApiToken(
    const std::optional<std::string> &apiToken, const std::optional<std::string> &hostname) noexcept {
  try {
    const auto &instance = singleInstance([&] { return make(apiToken, hostname); });
    Journal::shared().entryCalled();
    return instance;
  } catch (...) {
    return nullptr;
  }
}

std::shared_ptr<KXPublisher> KXPublisher::sharedInstanceWithApiToken(const char *apiToken,
                                                                     const char *hostname) noexcept {
  try {
    return sharedInstanceWithApiToken(optionalString(apiToken), optionalString(hostname));
  } catch (...) {
    return nullptr;
  }
}

std::shared_ptr<KXPublisher> KXPublisher::initWithApiToken(
    const std::optional<std::string> &apiToken, const std::optional<std::string> &hostname) noexcept {
  try {
    return make(apiToken, hostname);
  } catch (...) {
    return nullptr;
  }
}

std::shared_ptr<KXPublisher> KXPublisher::make(const std::optional<std::string> &apiToken,
                                               const std::optional<std::string> &hostname) {
  std::shared_ptr<KXPublisher> publisher(new KXPublisher);
  publisher->init(apiToken, hostname);
  return publisher;
}

void KXPublisher::init(const std::optional<std::string> &apiToken,
                       const std::optional<std::string> &hostname) {
  kxLog_.set(KXLog::sharedInstance());
  dataProviders_.set({KXDevice::sharedInstance(), KXCarrier::sharedInstance(), KXLocation::sharedInstance(),
                      KXConnection::sharedInstance(), KXAsn::sharedInstance()});
  kxLogger_.set(KXLogger::sharedInstanceWithApiToken(apiToken, hostname));
  const auto held = std::make_shared<AtomicProperty<std::shared_ptr<KXPublisher>>>(strong(*this));
  std::shared_ptr<RunLoopTimer> early;
  try {
    early = scheduleReport(loggingFirstTimeDelay, /*repeats=*/false);
    scheduleReport(loggingTimeInterval, /*repeats=*/true);
    observeApplication(held);
  } catch (...) {
    // One that is not whole must not report beside the next one.
    held->set(nullptr);
    if (early != nullptr) early->invalidate();
    if (const auto timer = logTimer()) timer->invalidate();
    throw;
  }
  Journal::shared().publisherMade();
}

KXPublisher::~KXPublisher() {
  dataProviders_.set({});
  kxLogger_.set(nullptr);
  if (const auto timer = logTimer()) timer->invalidate();
  logTimer_.set(nullptr);
  kxLog_.set(nullptr);
  try {
    Platform::current().defaultNotificationCenter().removeObserver(*this);
  } catch (...) {
    // Where no platform could be made, nothing has been observed either.
  }
}

/// The repeating one is kept. The other one is not: once scheduled, the early report is made, even if the
/// application enters the background first.
std::shared_ptr<RunLoopTimer> KXPublisher::scheduleReport(double timeInterval, bool repeats) {
  RunLoopService &runLoops = Platform::current().runLoops();
  auto timer = runLoops.timerWithTimeInterval(timeInterval, strong(*this),
                                              Selector::of<&KXPublisher::logData>("logData:"), repeats);
  if (repeats) logTimer_.set(timer);
  try {
    runLoops.mainRunLoop()->addTimer(timer, RunLoopMode::commonModes);
  } catch (...) {
    timer->invalidate();
    throw;
  }
  return timer;
}

void KXPublisher::repeatReports() noexcept {
  try {
    scheduleReport(loggingTimeInterval, /*repeats=*/true);
  } catch (...) {
    reportEndedException();
  }
}

void KXPublisher::observeApplication(const Held &held) {
  Platform &platform = Platform::current();
  NotificationCenter &center = platform.defaultNotificationCenter();
  center.addObserverForName(UIApplicationDidEnterBackgroundNotification, platform.sharedApplication(),
                            platform.mainOperationQueue(), [held](const std::shared_ptr<Notification> &) {
                              if (const auto publisher = held->get())
                                publisher->applicationDidEnterBackground();
                            });
  center.addObserverForName(UIApplicationWillEnterForegroundNotification, platform.sharedApplication(),
                            platform.mainOperationQueue(), [held](const std::shared_ptr<Notification> &) {
                              if (const auto publisher = held->get())
                                publisher->applicationWillEnterForeground();
                            });
}

void KXPublisher::applicationDidEnterBackground() {
  Journal::shared().applicationMoved(/*toBackground=*/true);
  inBackground_ = true;
  if (const auto timer = logTimer()) {
    timer->invalidate();
    logTimer_.set(nullptr);
  }
  Platform &platform = Platform::current();
  const auto application = platform.sharedApplication();
  if (application->backgroundRefreshStatus() != BackgroundRefreshStatus::available) {
    logDataAsync(false);
    return;
  }

  // Shared by the worker and the expiration handler: whoever comes first ends the task, the other one ends
  // `UIBackgroundTaskInvalid`, which is harmless.
  const auto task = std::make_shared<std::atomic<BackgroundTaskIdentifier>>(invalidBackgroundTask);
  const auto endTask = [application, task] {
    application->endBackgroundTask(task->exchange(invalidBackgroundTask));
  };
  *task = application->beginBackgroundTaskWithName(backgroundTaskName, endTask);
  try {
    platform.dispatch()
        .globalQueue(DispatchQueuePriority::standard)
        .async([publisher = strong(*this), endTask] {
          publisher->logDataAsync(false);
          endTask();
        });
  } catch (...) {
    endTask();
    throw;
  }
}

void KXPublisher::applicationWillEnterForeground() {
  Journal::shared().applicationMoved(/*toBackground=*/false);
  inBackground_ = false;
  if (const auto timer = logTimer()) timer->invalidate();
  try {
    scheduleReport(loggingFirstTimeDelay, /*repeats=*/false);
  } catch (...) {
    reportEndedException();  // one report is lost, and not all that follow
  }
  repeatReports();
}

void KXPublisher::logData(const std::shared_ptr<RunLoopTimer> &sender) noexcept {
  if (sender != nullptr) {
    Journal::shared().mainLoopServed();
    // There was no memory for the timer when the application returned.
    const auto timer = logTimer();
    if (!inBackground_ && (timer == nullptr || !timer->isValid())) repeatReports();
  }
  logDataAsync(true);
}

void KXPublisher::logDataAsync(bool async) noexcept {
  try {
    report(async);
  } catch (...) {
    reportEndedException();
  }
}

void KXPublisher::report(bool async) {
  Dictionary message = this->message();
  for (const auto &provider : dataProviders_.get()) provider->repeatLostRequest();
  const auto identifier = identifierOf(message);
  Journal::shared().reportMade(identifier);
  if (identifier != KXDiagnosis::Identifier::usable) {
    Journal::shared().reportDropped(KXDiagnosis::Drop::identifier);
    return;
  }
  Journal::shared().reportHandedOver();
  if (const auto logger = kxLogger()) {
    logger->logData(std::move(message), async);
  } else {
    Journal::shared().reportDropped(KXDiagnosis::Drop::noTransport);
  }
}

std::vector<std::shared_ptr<KXData>> KXPublisher::dataProviders() const noexcept {
  try {
    return dataProviders_.get();
  } catch (...) {
    return {};
  }
}

KXDiagnosis KXPublisher::diagnosis() noexcept {
  try {
    return Journal::shared().diagnosis();
  } catch (...) {
    return {};
  }
}

void KXPublisher::enableDebugging() noexcept {
  if (const auto log = kxLog()) log->setLogLevel(KXLogLevelDebug);
}

void KXPublisher::disableDebugging() noexcept {
  if (const auto log = kxLog()) log->setLogLevel(KXLogLevelError);
}

}  // namespace kx
