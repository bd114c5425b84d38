#include "platform/linux/lifecycle/SleepMonitor.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <utility>

#include "platform/linux/bus/MainContextScope.h"
#include "platform/linux/console/CallbackBoundary.h"

namespace kx {

namespace {

using WeakMonitor = std::weak_ptr<SleepMonitor>;

/// Runs `work` on the monitor that `data` refers to, if that is still there.
template <class Work>
void withMonitor(gpointer data, Work work) {
  if (const auto monitor = static_cast<WeakMonitor *>(data)->lock()) {
    runAtBoundary([&] { work(*monitor); });
  }
}

}  // namespace

SleepMonitor::SleepMonitor(std::shared_ptr<LinuxRunLoop> mainRunLoop, std::string applicationName,
                           Events events)
    : mainRunLoop_(std::move(mainRunLoop)),
      applicationName_(std::move(applicationName)),
      events_(std::move(events)),
      timer_(mainRunLoop_->context()) {}

SleepMonitor::~SleepMonitor() {
  if (nameWatch_ != 0) g_bus_unwatch_name(nameWatch_);
}

void SleepMonitor::use(GDBusConnection *connection) {
  if (nameWatch_ != 0) g_bus_unwatch_name(std::exchange(nameWatch_, 0));
  leave();
  if (connection == nullptr) return;
  const MainContextScope scope(mainRunLoop_->context());
  nameWatch_ = g_bus_watch_name_on_connection(
      connection, "org.freedesktop.login1", G_BUS_NAME_WATCHER_FLAGS_NONE, &whenAppeared, &whenVanished,
      new WeakMonitor(strong(*this)), [](gpointer data) { delete static_cast<WeakMonitor *>(data); });
}

void SleepMonitor::whenAppeared(GDBusConnection *connection, const gchar * /*name*/, const gchar *owner,
                                gpointer data) {
  withMonitor(data, [&](SleepMonitor &monitor) { monitor.meet(connection, owner); });
}

void SleepMonitor::whenVanished(GDBusConnection * /*connection*/, const gchar * /*name*/, gpointer data) {
  withMonitor(data, [](SleepMonitor &monitor) { monitor.leave(); });
}

void SleepMonitor::meet(GDBusConnection *connection, const char *owner) {
  leave();
  logind_ = std::make_shared<LogindManager>(connection, owner, applicationName_,
                                            [self = WeakMonitor(strong(*this))](bool start) {
                                              if (const auto monitor = self.lock()) monitor->heed(start);
                                            });
  if (delaysSleep_) logind_->takeLock();
}

void SleepMonitor::leave() {
  logind_.reset();
  timer_.cancel();
  if (std::exchange(isPreparing_, false)) events_.systemDidWake();
}

void SleepMonitor::heed(bool sleepStarts) {
  if (sleepStarts) {
    if (std::exchange(isPreparing_, true)) return;
    startTimer();
    events_.systemWillSleep();
    return;
  }
  timer_.cancel();
  if (std::exchange(isPreparing_, false)) events_.systemDidWake();
  // Also when the announcement itself was missed: a lock asked for since then was refused.
  setDelaysSleep(delaysSleep_);
}

void SleepMonitor::setDelaysSleep(bool delays) {
  delaysSleep_ = delays;
  if (!delays) timer_.cancel();
  if (logind_ == nullptr) return;
  if (delays) {
    logind_->takeLock();
  } else {
    logind_->giveUpLock();
  }
}

unsigned int SleepMonitor::millisecondsUntilDelayRunsOut(std::uint64_t longestDelay) {
  constexpr std::uint64_t margin = 1'000'000;  // microseconds
  constexpr std::uint64_t microsecondsInMillisecond = 1000;
  const std::uint64_t milliseconds =
      (longestDelay - std::min(margin, longestDelay / 2)) / microsecondsInMillisecond;
  return static_cast<unsigned int>(
      std::min<std::uint64_t>(milliseconds, std::numeric_limits<unsigned int>::max()));
}

void SleepMonitor::startTimer() {
  const std::chrono::milliseconds delay(millisecondsUntilDelayRunsOut(logind_->longestDelay()));
  timer_.schedule(delay, [self = WeakMonitor(strong(*this))] {
    if (const auto monitor = self.lock()) monitor->events_.delayRunsOut();
  });
}

}  // namespace kx
