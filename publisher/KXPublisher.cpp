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
    const auto &instance = singleInstance([&] { return initWithApiToken(apiToken, hostname); });
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

std::shared_ptr<KXPublisher> KXPublisher::initWithApiToken(const std::optional<std::string> &apiToken,
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
  scheduleReports();
  observeApplication();
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

void KXPublisher::scheduleReports() {
  RunLoopService &runLoops = Platform::current().runLoops();
  const Selector logDataSelector = Selector::of<&KXPublisher::logData>("logData:");
  // Not kept: once scheduled, the early report is made, even if the application enters the background first.
  runLoops.mainRunLoop()->addTimer(runLoops.timerWithTimeInterval(loggingFirstTimeDelay, strong(*this),
                                                                  logDataSelector, /*repeats=*/false),
                                   RunLoopMode::commonModes);
  const auto logTimer =
      runLoops.timerWithTimeInterval(loggingTimeInterval, strong(*this), logDataSelector, /*repeats=*/true);
  logTimer_.set(logTimer);
  runLoops.mainRunLoop()->addTimer(logTimer, RunLoopMode::commonModes);
}

void KXPublisher::observeApplication() {
  Platform &platform = Platform::current();
  NotificationCenter &center = platform.defaultNotificationCenter();
  center.addObserverForName(UIApplicationDidEnterBackgroundNotification, platform.sharedApplication(),
                            platform.mainOperationQueue(),
                            [publisher = strong(*this)](const std::shared_ptr<Notification> &) {
                              publisher->applicationDidEnterBackground();
                            });
  center.addObserverForName(UIApplicationWillEnterForegroundNotification, platform.sharedApplication(),
                            platform.mainOperationQueue(),
                            [publisher = strong(*this)](const std::shared_ptr<Notification> &) {
                              publisher->applicationWillEnterForeground();
                            });
}

void KXPublisher::applicationDidEnterBackground() {
  Journal::shared().applicationMoved(/*toBackground=*/true);
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
  platform.dispatch()
      .globalQueue(DispatchQueuePriority::standard)
      .async([publisher = strong(*this), endTask] {
        try {
          publisher->logDataAsync(false);
        } catch (...) {
          endTask();
          throw;
        }
        endTask();
      });
}

void KXPublisher::applicationWillEnterForeground() {
  Journal::shared().applicationMoved(/*toBackground=*/false);
  if (const auto timer = logTimer()) timer->invalidate();
  scheduleReports();
}

void KXPublisher::logData(const std::shared_ptr<RunLoopTimer> &sender) {
  if (sender != nullptr) Journal::shared().mainLoopServed();
  logDataAsync(true);
}

void KXPublisher::logDataAsync(bool async) {
  Dictionary message = data();
  const auto identifier = identifierOf(message);
  Journal::shared().reportMade(identifier);
  if (identifier != KXDiagnosis::Identifier::usable) {
    Journal::shared().reportDropped(KXDiagnosis::Drop::identifier);
    return;
  }
  Journal::shared().reportHandedOver();
  kxLogger()->logData(std::move(message), async);
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
