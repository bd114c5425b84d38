#include "platform/linux/threads/OneShotTimer.h"

#include <utility>

#include "platform/linux/console/CallbackBoundary.h"

namespace kx {

void OneShotTimer::schedule(std::chrono::milliseconds delay, std::function<void()> action) {
  cancel();
  action_ = std::move(action);
  source_ = g_timeout_source_new(static_cast<guint>(delay.count()));
  g_source_set_callback(source_, &fire, this, nullptr);
  g_source_attach(source_, context_);
}

void OneShotTimer::cancel() {
  GSource *const source = std::exchange(source_, nullptr);
  if (source == nullptr) return;
  g_source_destroy(source);
  g_source_unref(source);
  action_ = nullptr;
}

gboolean OneShotTimer::fire(gpointer data) {
  auto &timer = *static_cast<OneShotTimer *>(data);
  const auto action = timer.action_;  // which may schedule the timer again, or be the end of it
  timer.cancel();
  runAtBoundary(action);
  return G_SOURCE_REMOVE;
}

}  // namespace kx
