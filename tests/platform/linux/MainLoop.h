#pragma once

#include <glib.h>

#include <chrono>
#include <functional>
#include <stdexcept>

namespace kx {

/// Makes the calling thread the main thread, as a host does that runs its GApplication: it owns the default
/// main context while this object exists.
class MainThread {
 public:
  MainThread() {
    if (g_main_context_acquire(nullptr) == FALSE) throw std::logic_error("another thread is the main thread");
  }
  ~MainThread() { g_main_context_release(nullptr); }
  MainThread(const MainThread &) = delete;
  MainThread &operator=(const MainThread &) = delete;

  /// Runs the loop until `condition` holds, for as long as a busy machine may need; false when it never did.
  /// The condition is tested after each iteration, and so by nothing else than what it waits for.
  bool runUntil(const std::function<bool()> &condition) const {
    bool outOfPatience = false;
    const guint limit = g_timeout_add_seconds(30, &note, &outOfPatience);
    while (!condition() && !outOfPatience) g_main_context_iteration(nullptr, TRUE);
    if (!outOfPatience) g_source_remove(limit);
    return !outOfPatience;
  }

 private:
  static gboolean note(gpointer flag) {
    *static_cast<bool *>(flag) = true;
    return G_SOURCE_REMOVE;
  }
};

/// A context that the host has made the calling thread's default, and never runs.
class ForeignContext {
 public:
  ForeignContext() : context_(g_main_context_new()) { g_main_context_push_thread_default(context_); }
  ~ForeignContext() {
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
  }
  ForeignContext(const ForeignContext &) = delete;
  ForeignContext &operator=(const ForeignContext &) = delete;

 private:
  GMainContext *const context_;
};

}  // namespace kx
