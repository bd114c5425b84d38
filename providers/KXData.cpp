#include "KXPublisher/providers/KXData.h"

#include <utility>

#include "KXPublisher/platform/Application.h"
#include "KXPublisher/platform/DispatchQueue.h"
#include "KXPublisher/platform/NotificationCenter.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/foundation/Exceptions.h"
#include "KXPublisher/platform/foundation/StringFormat.h"
#include "platform/EndedException.h"

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
  const auto held = std::make_shared<AtomicProperty<std::shared_ptr<KXData>>>(strong(*this));
  heldByHandlers_ = held;
  try {
    startInit();
  } catch (...) {
    held->set(nullptr);  // there is no withdrawing handlers
    throw;
  }
}

void KXData::startInit() {
  instanceDidStartInit();
  // Submitted before the queue exists: a worker that is quicker than the next line finds no queue, does
  // nothing, and leaves the first data to the next refresh.
  updateDataInBackground(/*ifPermitted=*/true);
  computeDataOperationQueue_.set(std::make_shared<SerialOperationQueue>());
  sharedScheduler_.set(KXScheduler::sharedInstance());
  whenApplicationPosts(UIApplicationDidEnterBackgroundNotification, [this] {
    if (!needsMonitoring()) return;
    sharedScheduler()->removeTimerForTarget(strong(*this), updateDataWithTimerSelector());
  });
  whenApplicationPosts(UIApplicationWillEnterForegroundNotification, [this] {
    if (!needsMonitoring()) return;
    updateDataInBackground(/*ifPermitted=*/true);
    updateMonitoring();
  });
}

void KXData::whenApplicationPosts(const std::string &name, std::function<void()> handler) {
  Platform &platform = Platform::current();
  platform.defaultNotificationCenter().addObserverForName(
      name, platform.sharedApplication(), platform.mainOperationQueue(),
      [held = heldByHandlers(), handler = std::move(handler)](const std::shared_ptr<Notification> &) {
        const auto provider = held == nullptr ? nullptr : held->get();
        if (provider != nullptr) handler();
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
  replaceData(Request::update, [this] { return computeData(); });
}

void KXData::updateData(std::shared_ptr<MutableDictionary> data) {
  replaceData(Request::update, [data = std::move(data)] { return data; });
}

void KXData::resetData() {
  replaceData(Request::reset, [] { return std::make_shared<MutableDictionary>(); });
}

void KXData::updateDataInBackground(bool ifPermitted) {
  asRequest(Request::update, [this, ifPermitted] {
    Platform::current()
        .dispatch()
        .globalQueue(DispatchQueuePriority::background)
        .async([provider = strong(*this), ifPermitted] {
          provider->asRequest(Request::update, [&] {
            if (!ifPermitted || provider->hasPermissions()) provider->updateData();
          });
        });
  });
}

void KXData::replaceData(Request request, std::function<std::shared_ptr<MutableDictionary>()> next) {
  asRequest(request, [&] {
    const auto queue = computeDataOperationQueue();
    if (queue == nullptr) return;
    WorkItem operation = [provider = strong(*this), request, next = std::move(next)] {
      provider->asRequest(request, [&] {
        // Emptied before it is replaced, so that whoever still holds the old map sees it end.
        if (const auto previous = provider->data()) previous->removeAllObjects();
        provider->data_.set(next());
        provider->lost_ = Request::none;
      });
    };
    queue->cancelAllOperations();
    queue->addOperation(std::move(operation));
  });
}

void KXData::repeatLostRequest() noexcept {
  const Request request = lost_;
  if (request == Request::none) return;
  lost_ = Request::none;
  try {
    asRequest(request, [this, request] {
      if (request == Request::reset) {
        resetData();
      } else if (hasPermissions()) {
        updateData();
      }
    });
  } catch (...) {
    reportEndedException();
  }
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
