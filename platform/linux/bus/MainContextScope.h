#pragma once

#include <glib.h>

namespace kx {

/// Makes a context the calling thread's default while this object exists, whatever the host has pushed
/// there. What GLib begins meanwhile calls back on that context. The thread runs the context.
class MainContextScope {
 public:
  explicit MainContextScope(GMainContext *context) : context_(context) {
    g_main_context_push_thread_default(context_);
  }
  ~MainContextScope() { g_main_context_pop_thread_default(context_); }
  MainContextScope(const MainContextScope &) = delete;
  MainContextScope &operator=(const MainContextScope &) = delete;

 private:
  GMainContext *const context_;
};

}  // namespace kx
