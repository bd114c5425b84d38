#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "KXPublisher/platform/foundation/Object.h"
#include "KXPublisher/platform/foundation/Selector.h"
#include "KXPublisher/providers/KXScheduleInfo.h"

namespace kx {

/// A registry of repeating timers, one for each pair of a target and an operation of it, so that a caller
/// need not keep timers: it names the pair. All timers run on the main run loop. There is one registry in a
/// process.
///
/// A pair is absent, running, or paused (its record stays, its timer is invalid). A pair that is not absent
/// keeps its target alive. An absent target or a null selector names no pair: such a call does nothing.
///
/// The registry expects its calls one after the other, in practice on the main thread: each single access to
/// it is safe on any thread, but two calls for the same pair at once may both install a timer.
class KX_EXPORT KXScheduler : public Object {
 public:
  KXScheduler() = default;

  /// `sharedInstance`: the one registry, made at the first call.
  static std::shared_ptr<KXScheduler> sharedInstance();

  /// `keyForTarget:selector:`: the text "t:%@,s:%@" of the target's `description` and the operation's name;
  /// absent when one of them is. Targets that share a description share an entry.
  static std::optional<std::string> keyForTarget(const std::shared_ptr<Object> &target, Selector selector);

  /// `scheduleInfoForTarget:selector:`: the pair's record; a null pointer when it has none.
  std::shared_ptr<KXScheduleInfo> scheduleInfoForTarget(const std::shared_ptr<Object> &target,
                                                        Selector selector) const;

  /// `setScheduleInfo:forTarget:selector:`: stores the record for the pair, replacing an earlier one.
  void setScheduleInfo(std::shared_ptr<KXScheduleInfo> scheduleInfo, const std::shared_ptr<Object> &forTarget,
                       Selector selector);

  /// `scheduleInfoMap`: a copy of the registry, one record for each pair, under the pair's key.
  std::map<std::string, std::shared_ptr<KXScheduleInfo>> scheduleInfoMap() const;
  /// `setScheduleInfoMap:`: replaces the registry. The timers of records that nobody holds any more stop.
  void setScheduleInfoMap(std::map<std::string, std::shared_ptr<KXScheduleInfo>> scheduleInfoMap);

  /// `scheduleTimerForTarget:selector:withTimeInverval:`: has `selector` called on `target` every
  /// `withTimeInverval` seconds, for the first time after one period. A timer that already runs with exactly
  /// that period is left untouched; any other one is replaced.
  void scheduleTimerForTarget(const std::shared_ptr<Object> &target, Selector selector,
                              double withTimeInverval);

  /// `setTimeInterval:forTarget:selector:`: the same with another order of arguments.
  void setTimeInterval(double timeInterval, const std::shared_ptr<Object> &forTarget, Selector selector);

  /// `pauseTimerForTarget:selector:`: stops the pair's timer and keeps its record.
  void pauseTimerForTarget(const std::shared_ptr<Object> &target, Selector selector);

  /// `resumeTimerForTarget:selector:`: starts a paused pair again with the period of its record.
  void resumeTimerForTarget(const std::shared_ptr<Object> &target, Selector selector);

  /// `removeTimerForTarget:selector:`: stops the pair's timer and forgets the pair.
  void removeTimerForTarget(const std::shared_ptr<Object> &target, Selector selector);

 private:
  KX_HIDDEN std::shared_ptr<KXScheduleInfo> exchangeScheduleInfo(
      const std::string &key, std::shared_ptr<KXScheduleInfo> scheduleInfo);

  mutable std::mutex mutex_;  ///< held for single accesses to the map alone
  std::map<std::string, std::shared_ptr<KXScheduleInfo>> scheduleInfoMap_;
};

}  // namespace kx
