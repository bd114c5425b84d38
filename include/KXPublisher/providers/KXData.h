#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "KXPublisher/platform/RunLoopTimer.h"
#include "KXPublisher/platform/SerialOperationQueue.h"
#include "KXPublisher/platform/foundation/AtomicNumber.h"
#include "KXPublisher/platform/foundation/AtomicProperty.h"
#include "KXPublisher/platform/foundation/MutableDictionary.h"
#include "KXPublisher/platform/foundation/Object.h"
#include "KXPublisher/providers/KXScheduler.h"

namespace kx {

/// The base of every data provider: a single instance that owns one flat map of facts, `data`, and recomputes
/// it on a serial queue of its own.
///
/// A provider overrides `computeData`, `hasPermissions` and `needsMonitoring`, offers its own
/// `sharedInstance`, and may override `instanceDidStartInit` and `monitoringTimeInterval`. What it has to
/// override and does not throws `InternalInconsistencyException` with the reason "You must override %@ in a
/// subclass".
///
/// Threads: every change of `data`, and every `computeData`, runs on the compute queue, never on the main
/// thread and never twice at once. Everything else may be called from any thread and returns at once.
class KX_EXPORT KXData : public Object {
 public:
  /// `dealloc`: cancels what waits on the compute queue and withdraws the provider as an observer.
  ~KXData() override;

  /// `sharedInstance`: the class's one instance, made at the first call. Throws unless the class supplies it.
  static std::shared_ptr<KXData> sharedInstance();
  /// `sharedInstanceWithMonitoring:`: throws on every class.
  static std::shared_ptr<KXData> sharedInstanceWithMonitoring(bool monitoring);

  // Class operations that the base asks of the provider's class; they read no instance.

  /// `needsMonitoring`: whether the provider wants to be recomputed periodically. Throws unless overridden.
  virtual bool needsMonitoring() const;
  /// `monitoringTimeInterval`: that period in seconds. Throws unless overridden:
  /// `InternalInconsistencyException` where monitoring is needed, otherwise `UnrecognizedSelectorException`.
  virtual double monitoringTimeInterval() const;

  /// `hasPermissions`: whether the provider may gather its facts now. Throws unless overridden.
  virtual bool hasPermissions();
  /// `computeData`: builds a new map of the provider's facts, perhaps an empty one, but never the object that
  /// is `data` now. Runs on the compute queue. Throws unless overridden.
  virtual std::shared_ptr<MutableDictionary> computeData();

  /// `data`: the current facts; a null pointer until the first operation has run. The map is emptied when it
  /// is replaced, so a reader takes its `contents` at once.
  std::shared_ptr<MutableDictionary> data() const { return data_.get(); }
  /// `setData:`
  void setData(std::shared_ptr<MutableDictionary> data) { data_.set(std::move(data)); }

  /// `updateData`: asks for a recomputation.
  void updateData();
  /// `updateData:`: installs a map that was computed elsewhere, itself and not a copy. It must not be the
  /// object that is `data` now.
  void updateData(std::shared_ptr<MutableDictionary> data);
  /// `resetData`: replaces `data` by an empty map.
  void resetData();
  // Of several such requests the latest wins: each cancels those that have not started.

  /// Repeats the latest of these requests if it was lost for want of memory, or to whatever else the platform
  /// throws: a map that is computed once in a process would stay away for ever. Asked at each report.
  void repeatLostRequest() noexcept;

  /// `isMonitoring`: whether periodic recomputation is switched on; always false where it is not needed.
  bool isMonitoring() const;
  /// `setMonitoring:`: switches it on or off. Throws `UnrecognizedSelectorException`, and changes nothing,
  /// where monitoring is not needed.
  void setMonitoring(bool monitoring);
  /// `updateMonitoring`: starts or stops the provider's timer as the switch and the permissions say. Stopping
  /// empties the data.
  void updateMonitoring();
  /// `updateDataWithTimer:`: what the timer calls, on the main thread; calls `updateData`.
  void updateDataWithTimer(const std::shared_ptr<RunLoopTimer> &timer);

  /// `computeDataOperationQueue`: a null pointer while the provider is being built.
  std::shared_ptr<SerialOperationQueue> computeDataOperationQueue() const {
    return computeDataOperationQueue_.get();
  }
  /// `setComputeDataOperationQueue:`
  void setComputeDataOperationQueue(std::shared_ptr<SerialOperationQueue> computeDataOperationQueue) {
    computeDataOperationQueue_.set(std::move(computeDataOperationQueue));
  }
  /// `sharedScheduler`: the registry of the monitoring timers.
  std::shared_ptr<KXScheduler> sharedScheduler() const { return sharedScheduler_.get(); }
  /// `setSharedScheduler:`
  void setSharedScheduler(std::shared_ptr<KXScheduler> sharedScheduler) {
    sharedScheduler_.set(std::move(sharedScheduler));
  }

 protected:
  KXData() = default;

  /// `instanceDidStartInit`: the provider's own set-up, before the base's.
  virtual void instanceDidStartInit();

  /// What a change of `data` is asked for by.
  enum class Request { none, update, reset };

  /// Runs `work`, which leads to such a request, or is it. Where it throws, the request is lost, and comes
  /// with the next `repeatLostRequest`.
  template <class Work>
  void asRequest(Request request, const Work &work) {
    try {
      work();
    } catch (const std::logic_error &) {
      throw;  // it would be the same another time
    } catch (...) {
      lost_ = request;
      throw;
    }
  }

  /// What a handler holds, and through it the provider: for good, unless the provider's making fails before
  /// it is whole; then its handlers hold nothing.
  using Held = std::shared_ptr<AtomicProperty<std::shared_ptr<KXData>>>;
  Held heldByHandlers() const { return heldByHandlers_.lock(); }

  /// Has `handler` called on the main operation queue whenever the shared application posts `name`.
  void whenApplicationPosts(const std::string &name, std::function<void()> handler);

  /// Submits a task to the global queue of background priority that calls `updateData`, only if
  /// `hasPermissions` answers true then where that is asked for.
  void updateDataInBackground(bool ifPermitted);

  /// Makes a provider: plain construction, then `init`.
  template <class Provider, class... Arguments>
  static std::shared_ptr<Provider> make(Arguments &&...arguments) {
    std::shared_ptr<Provider> provider(new Provider(std::forward<Arguments>(arguments)...));
    provider->init();
    return provider;
  }

 private:
  /// `init`, the step after construction: everything that needs the provider to be shared already.
  void init();
  /// What the three ways of replacing `data` have in common: cancels what waits on the compute queue, and
  /// adds an operation that empties the current map and stores the one that `next` makes. Does nothing while
  /// there is no queue.
  KX_HIDDEN void replaceData(Request request, std::function<std::shared_ptr<MutableDictionary>()> next);
  KX_HIDDEN void startInit();

  KX_HIDDEN static Selector updateDataWithTimerSelector();

  AtomicNumber<bool> shouldMonitor_{false};
  AtomicNumber<Request> lost_{Request::none};
  std::weak_ptr<AtomicProperty<std::shared_ptr<KXData>>> heldByHandlers_;
  AtomicProperty<std::shared_ptr<MutableDictionary>> data_;
  AtomicProperty<std::shared_ptr<SerialOperationQueue>> computeDataOperationQueue_;
  AtomicProperty<std::shared_ptr<KXScheduler>> sharedScheduler_;
};

}  // namespace kx
