#include "KXPublisher/providers/KXData.h"

#include <utility>

#include "KXPublisher/platform/Application.h"
#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/NotificationCenter.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/foundation/Exceptions.h"
#include "KXPublisher/platform/foundation/StringFormat.h"

namespace kx {

namespace {

[[noreturn]] void raiseMissingOverride(const char *operation) {
  throw InternalInconsistencyException(stringWithFormat("You must override %@ in a subclass", {operation}));
}

[[noreturn]] void doesNotRecognizeSelector(const Object &object, const char *operation) {
  throw UnrecognizedSelectorException(stringWithFormat("%@: unrecognized selector %@", {&object, operation}));
}

}  // namespace

std::shared_ptr<KXData> KXData::sharedInstance() {
  raiseMissingOverride("sharedInstance");
}

std::shared_ptr<KXData> KXData::sharedInstanceWithMonitoring(bool /*monitoring*/) {
  raiseMissingOverride("sharedInstanceWithMonitoring:");
}

bool KXData::needsMonitoring() const {
  raiseMissingOverride("needsMonitoring");
}

double KXData::monitoringTimeInterval() const {
  if (needsMonitoring()) raiseMissingOverride("monitoringTimeInterval");
  doesNotRecognizeSelector(*this, "monitoringTimeInterval");
}

bool KXData::hasPermissions() {
  raiseMissingOverride("hasPermissions");
}

std::shared_ptr<MutableDictionary> KXData::computeData() {
  raiseMissingOverride("computeData");
}

void KXData::instanceDidStartInit() {}

void KXData::init() {
  instanceDidStartInit();
  // Submitted before the queue exists: a worker that is quicker than the next line finds no queue, does
  // nothing, and leaves the first data to the next refresh.
  Platform::current()
      .dispatch()
      .globalQueue(DispatchQueuePriority::background)
      .async([provider = strong(*this)] {
        if (provider->hasPermissions()) provider->updateData();
      });
  computeDataOperationQueue_.set(std::make_shared<SerialOperationQueue>());
  sharedScheduler_.set(KXScheduler::sharedInstance());
  observeApplication();
}

void KXData::observeApplication() {
  Platform &platform = Platform::current();
  NotificationCenter &center = platform.defaultNotificationCenter();
  center.addObserverForName(
      UIApplicationDidEnterBackgroundNotification, platform.sharedApplication(),
      platform.mainOperationQueue(), [provider = strong(*this)](const std::shared_ptr<Notification> &) {
        if (!provider->needsMonitoring()) return;
        provider->sharedScheduler()->removeTimerForTarget(provider, updateDataWithTimerSelector());
      });
  center.addObserverForName(
      UIApplicationWillEnterForegroundNotification, platform.sharedApplication(),
      platform.mainOperationQueue(), [provider = strong(*this)](const std::shared_ptr<Notification> &) {
        if (!provider->needsMonitoring()) return;
        Platform::current().dispatch().globalQueue(DispatchQueuePriority::background).async([provider] {
          if (provider->hasPermissions()) provider->updateData();
        });
        provider->updateMonitoring();
      });
}

KXData::~KXData() {
  if (const auto queue = computeDataOperationQueue()) queue->cancelAllOperations();
  computeDataOperationQueue_.set(nullptr);
  try {
    Platform::current().defaultNotificationCenter().removeObserver(*this);
  } catch (...) {
    // Where no platform could be made, nothing has been observed either.
  }
}

void KXData::updateData() {
  replaceData([this] { return computeData(); });
}

void KXData::updateData(std::shared_ptr<MutableDictionary> data) {
  replaceData([data = std::move(data)] { return data; });
}

void KXData::resetData() {
  replaceData([] { return std::make_shared<MutableDictionary>(); });
}

void KXData::replaceData(std::function<std::shared_ptr<MutableDictionary>()> next) {
  const auto queue = computeDataOperationQueue();
  if (queue == nullptr) return;
  WorkItem operation = [provider = strong(*this), next = std::move(next)] {
    // Emptied before it is replaced, so that whoever still holds the old map sees it end.
    if (const auto previous = provider->data()) previous->removeAllObjects();
    provider->data_.set(next());
  };
  queue->cancelAllOperations();
  queue->addOperation(std::move(operation));
}

bool KXData::isMonitoring() const {
  return needsMonitoring() && shouldMonitor_;
}

void KXData::setMonitoring(bool monitoring) {
  if (!needsMonitoring()) doesNotRecognizeSelector(*this, "setMonitoring:");
  shouldMonitor_ = monitoring;
  updateMonitoring();
}

void KXData::updateMonitoring() {
  if (isMonitoring() && hasPermissions()) {
    sharedScheduler()->scheduleTimerForTarget(strong(*this), updateDataWithTimerSelector(),
                                              monitoringTimeInterval());
  } else if (needsMonitoring()) {
    resetData();
    sharedScheduler()->removeTimerForTarget(strong(*this), updateDataWithTimerSelector());
  }
}

void KXData::updateDataWithTimer(const std::shared_ptr<RunLoopTimer> & /*timer*/) {
  updateData();
}

Selector KXData::updateDataWithTimerSelector() {
  return Selector::of<&KXData::updateDataWithTimer>("updateDataWithTimer:");
}

}  // namespace kx
