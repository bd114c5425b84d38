#pragma once

#include <glib.h>

#include <chrono>
#include <functional>

namespace kx {

/// Runs something once, after a while, on a context's thread. To be used on that thread only.
class OneShotTimer {
 public:
  explicit OneShotTimer(GMainContext *context) : context_(context) {}
  ~OneShotTimer() { cancel(); }
  OneShotTimer(const OneShotTimer &) = delete;
  OneShotTimer &operator=(const OneShotTimer &) = delete;

  /// Has `action` run after `delay`, in place of one that has not run yet.
  void schedule(std::chrono::milliseconds delay, std::function<void()> action);
  void cancel();
  bool isScheduled() const { return source_ != nullptr; }

 private:
  static gboolean fire(gpointer data);

  GMainContext *const context_;
  GSource *source_ = nullptr;
  std::function<void()> action_;
};

}  // namespace kx
