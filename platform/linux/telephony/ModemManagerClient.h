#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/bus/GLibPointers.h"
#include "platform/linux/telephony/ModemReading.h"
#include "platform/linux/threads/LinuxRunLoop.h"

namespace kx {

/// Reads the subscription from ModemManager, whenever that is on the bus, and reads it again when it changes.
///
/// Everything happens on the main thread, and nothing waits. There is one truth, what the service answers: a
/// signal that something has changed only has all of it read afresh, a moment later, so that any number of
/// signals ends in one reading. While it runs, the values of the last reading stay. A service that does not
/// answer, or answers with something else, leaves the subscription empty; it is asked again when it signals a
/// change, and else once a minute. Nobody starts a service that does not run.
class ModemManagerClient : public Object {
 public:
  /// Told what has been read, on the main thread; an empty one when the service goes.
  using Observer = std::function<void(const Subscription &subscription)>;

  /// How long things take, in milliseconds.
  struct Intervals {
    unsigned int toGatherChanges = 100;     ///< from the first signal of a change to the reading
    int toAnswer = 5000;                    ///< what the service needs not ask the modem, it knows
    unsigned int betweenAttempts = 60'000;  ///< from a reading that failed to the next, if nothing changes
  };

  ModemManagerClient(std::shared_ptr<LinuxRunLoop> mainRunLoop, Observer observer, Intervals intervals);
  ~ModemManagerClient() override;

  /// The bus to find the service on; null when there is none any more. On the main thread.
  void use(GDBusConnection *connection);

 private:
  struct Question;

  void meet(const char *owner);
  void leave();
  void disconnect();
  void subscribe(const char *interface, const char *member, const char *path, const char *firstArgument,
                 GDBusSignalCallback callback);

  void noteChange();
  void readLater(unsigned int milliseconds);
  void read();
  void ask(const char *path, const char *interface, const char *method, GVariant *parameters,
           const char *answerType, std::function<void(GVariant *answer)> then);
  void readSim(const Modem &modem, Subscription subscription);
  void finishReading(const Subscription &subscription, bool answered);

  // What GLib calls gets a weak reference on the heap, as `data`.
  gpointer newReference();
  static void releaseReference(gpointer data);
  template <class Work>
  static void withReferred(gpointer data, Work work);
  static void whenAppeared(GDBusConnection *connection, const gchar *name, const gchar *owner, gpointer data);
  static void whenVanished(GDBusConnection *connection, const gchar *name, gpointer data);
  static void whenPropertiesChanged(GDBusConnection *connection, const gchar *sender, const gchar *path,
                                    const gchar *interface, const gchar *signal, GVariant *parameters,
                                    gpointer data);
  static void whenObjectsChanged(GDBusConnection *connection, const gchar *sender, const gchar *path,
                                 const gchar *interface, const gchar *signal, GVariant *parameters,
                                 gpointer data);
  static void whenAnswered(GObject *connection, GAsyncResult *result, gpointer data);

  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  const Observer observer_;
  const Intervals intervals_;
  GLibPointer<GDBusConnection> connection_;
  guint nameWatch_ = 0;
  std::string owner_;  ///< the service's unique name; empty while it is not there
  std::vector<guint> subscriptions_;
  GLibPointer<GCancellable> reading_;  ///< of the reading under way
  bool changed_ = false;               ///< since the reading under way began, or the next is due soon
  GSource *timer_ = nullptr;           ///< for the next reading
};

}  // namespace kx
