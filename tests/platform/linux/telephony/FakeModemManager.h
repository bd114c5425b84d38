#pragma once

#include <libmm-glib.h>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "tests/support/PrivateBus.h"

namespace kx {

/// ModemManager as it shows on the bus, made of the skeletons that its own library has: modems and SIMs with
/// numbers, with whatever the test wants them to be. Used on the main thread, and served by its loop.
class FakeModemManager {
 public:
  /// Not on the bus yet.
  explicit FakeModemManager(const PrivateBus &bus) : bus_(bus) {}
  ~FakeModemManager() { stop(); }
  FakeModemManager(const FakeModemManager &) = delete;
  FakeModemManager &operator=(const FakeModemManager &) = delete;

  /// Enters the bus, with all modems and SIMs that there are.
  void start();
  /// Leaves the bus.
  void stop();

  /// One that is registered, with the SIM of that number if there is one.
  void addModem(int number, std::optional<int> sim, std::uint32_t accessTechnologies);
  void removeModem(int number);
  void setSim(int modem, std::optional<int> sim);
  void setState(int modem, MMModemState state);
  void setAccessTechnologies(int modem, std::uint32_t accessTechnologies);
  void setSignalQuality(int modem, std::uint32_t percent);
  /// Makes the SIM when there is none of that number.
  void setOperatorIdentifier(int sim, const std::string &operatorIdentifier);

  /// Gives every call of `method` this answer from now on, in GVariant's text format; an empty one gives none
  /// at all, ever. Also before the start.
  void answerInstead(const std::string &method, const std::string &answer);
  /// Answers `method` as it should be again.
  void answerAgain(const std::string &method);
  /// How often `method` was called.
  int calls(const std::string &method) const;

  /// Its connection to the bus; null while it has none.
  GDBusConnection *connection() const { return connection_.get(); }

  /// Emits a signal of the object at `path`.
  void emit(const std::string &path, const char *interface, const char *signal,
            const std::string &parameters);

 private:
  template <class Skeleton>
  using Owned = std::shared_ptr<Skeleton>;

  void exportSim(MmGdbusSim *sim, int number) const;
  void callBus(const char *method, GVariant *parameters) const;
  static GDBusMessage *whenMessage(GDBusConnection *connection, GDBusMessage *message, gboolean incoming,
                                   gpointer data);
  /// Whether the call is dealt with. On GLib's thread.
  bool answered(GDBusConnection *connection, GDBusMessage *call);

  const PrivateBus &bus_;
  std::shared_ptr<GDBusConnection> connection_;
  guint filter_ = 0;
  Owned<GDBusObjectManagerServer> objects_{g_dbus_object_manager_server_new("/org/freedesktop/ModemManager1"),
                                           &g_object_unref};
  std::map<int, Owned<MmGdbusModem>> modems_;
  std::map<int, Owned<MmGdbusSim>> sims_;

  mutable std::mutex mutex_;
  std::map<std::string, std::string> answers_;
  std::map<std::string, int> calls_;
};

}  // namespace kx
