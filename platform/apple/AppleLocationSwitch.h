#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace kx {

/// Whether the user has location services switched on, and whether the system is asked for it on the right
/// thread: it may take its time to answer, and since iOS 16 it warns of being asked on the main one.
///
/// So the main thread is told what is known, and each time the system is asked anew elsewhere. Before the
/// first answer nothing is known to be on: updates that were started in vain could make the system ask the
/// user to switch location services on. Where what the main thread was told turns out to be wrong, whoever
/// was told hears of it, so that nothing is lost by the waiting.
class AppleLocationSwitch : public std::enable_shared_from_this<AppleLocationSwitch> {
 public:
  /// `toldWrong` is called on the main thread, each time that it was told something else than what is known
  /// now.
  explicit AppleLocationSwitch(std::function<void()> toldWrong) : toldWrong_(std::move(toldWrong)) {}

  /// Asks the system, except on the main thread, where what is known is answered at once.
  bool isOn();

 private:
  bool askSystem();

  const std::function<void()> toldWrong_;
  std::mutex mutex_;
  bool known_ = false;
  std::optional<bool> told_;  ///< what the main thread was told last
};

}  // namespace kx
