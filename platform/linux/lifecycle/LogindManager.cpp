#include "platform/linux/lifecycle/LogindManager.h"

#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <utility>

#include "platform/linux/bus/MainContextScope.h"
#include "platform/linux/console/CallbackBoundary.h"
#include "platform/linux/threads/ForkedChild.h"

namespace kx {

namespace {

constexpr const char *managerPath = "/org/freedesktop/login1";
constexpr const char *managerInterface = "org.freedesktop.login1.Manager";
constexpr std::uint64_t defaultLongestDelay = 5'000'000;  // microseconds

using WeakManager = std::weak_ptr<LogindManager>;

/// The manager that an answer is for; null when logind has gone since. Takes over what `data` points to.
std::shared_ptr<LogindManager> takeManager(gpointer data) {
  const std::unique_ptr<WeakManager> manager(static_cast<WeakManager *>(data));
  return manager->lock();
}

}  // namespace

LogindManager::LogindManager(GDBusConnection *connection, std::string owner, std::string applicationName,
                             Announcement announcement)
    : connection_(retained(connection)),
      owner_(std::move(owner)),
      applicationName_(std::move(applicationName)),
      announcement_(std::move(announcement)),
      longestDelay_(defaultLongestDelay) {
  const MainContextScope scope(g_main_context_default());
  subscription_ = g_dbus_connection_signal_subscribe(connection, owner_.c_str(), managerInterface,
                                                     "PrepareForSleep", managerPath, nullptr,
                                                     G_DBUS_SIGNAL_FLAGS_NONE, &whenPreparing, this, nullptr);
}

LogindManager::~LogindManager() {
  g_dbus_connection_signal_unsubscribe(connection_.get(), subscription_);
  giveUpLock();
}

void LogindManager::whenPreparing(GDBusConnection * /*connection*/, const gchar * /*sender*/,
                                  const gchar * /*path*/, const gchar * /*interface*/,
                                  const gchar * /*signal*/, GVariant *parameters, gpointer data) {
  if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(b)")) == FALSE) return;
  gboolean start = FALSE;
  g_variant_get(parameters, "(b)", &start);
  const auto manager = strong(*static_cast<LogindManager *>(data));  // an observer may run a loop of its own
  if (manager == nullptr) return;
  runAtBoundary([&] { manager->announcement_(start != FALSE); });
}

void LogindManager::takeLock() {
  wantsLock_ = true;
  if (lock_ >= 0 || askedForLock_) return;
  askedForLock_ = true;
  const MainContextScope scope(g_main_context_default());
  g_dbus_connection_call_with_unix_fd_list(
      connection_.get(), owner_.c_str(), managerPath, managerInterface, "Inhibit",
      g_variant_new("(ssss)", "sleep", applicationName_.c_str(), "Sending a last report", "delay"),
      G_VARIANT_TYPE("(h)"), G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr, &whenLocked,
      new WeakManager(strong(*this)));
  // The administrator may change it while logind runs, and no signal tells.
  g_dbus_connection_call(connection_.get(), owner_.c_str(), managerPath, "org.freedesktop.DBus.Properties",
                         "Get", g_variant_new("(ss)", managerInterface, "InhibitDelayMaxUSec"),
                         G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, &whenTold,
                         new WeakManager(strong(*this)));
}

void LogindManager::giveUpLock() {
  wantsLock_ = false;
  if (lock_ < 0) return;
  close(std::exchange(lock_, -1));
}

void LogindManager::whenLocked(GObject *connection, GAsyncResult *result, gpointer data) {
  const auto manager = takeManager(data);
  GUnixFDList *received = nullptr;
  const GLibPointer<GVariant> answer(g_dbus_connection_call_with_unix_fd_list_finish(
      G_DBUS_CONNECTION(connection), &received, result, nullptr));
  const GLibPointer<GUnixFDList> descriptors(received);  // closes those that nobody keeps
  if (manager != nullptr) manager->keepLock(answer.get(), descriptors.get());
}

void LogindManager::keepLock(GVariant *answer, GUnixFDList *descriptors) {
  askedForLock_ = false;
  if (!wantsLock_ || answer == nullptr || descriptors == nullptr) return;
  gint32 index = 0;
  g_variant_get(answer, "(h)", &index);
  if (index < 0 || index >= g_unix_fd_list_get_length(descriptors)) return;
  lock_ = g_unix_fd_list_get(descriptors, index, nullptr);
  if (lock_ >= 0) ForkedChild::keepFrom(lock_);
}

void LogindManager::whenTold(GObject *connection, GAsyncResult *result, gpointer data) {
  const auto manager = takeManager(data);
  const GLibPointer<GVariant> answer(
      g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, nullptr));
  if (manager == nullptr || answer == nullptr) return;
  GVariant *boxed = nullptr;
  g_variant_get(answer.get(), "(v)", &boxed);
  const GLibPointer<GVariant> delay(boxed);
  if (g_variant_is_of_type(boxed, G_VARIANT_TYPE_UINT64) != FALSE) {
    manager->longestDelay_ = g_variant_get_uint64(boxed);
  }
}

}  // namespace kx
