#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/foundation/Object.h"
#include "platform/linux/bus/BusNameWatch.h"
#include "platform/linux/bus/BusPeer.h"
#include "platform/linux/bus/GLibPointers.h"
#include "platform/linux/telephony/ModemReading.h"
#include "platform/linux/threads/LinuxRunLoop.h"
#include "platform/linux/threads/OneShotTimer.h"

namespace kx {

/// Reads the subscription from ModemManager, whenever that is on the bus, and reads it again when it changes.
///
/// Everything happens on the main thread, and nothing waits. There is one truth, what the service answers: a
/// signal that something has changed only has all of it read afresh, a moment later, so that any number of
/// signals ends in one reading; and no other properties than those that are read wake the main thread, not
/// even the strength of the signal, which never rests. While it runs, the values of the last reading stay. A
/// service that does not answer, or answers with something else, leaves the subscription empty; it is asked
/// again when it signals a change, and else once a minute. Nobody starts a service that does not run.
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

  /// The bus to find the service on; null when there is none any more. On the main thread.
  void use(GDBusConnection *connection);

 private:
  void meet(const char *owner);
  void leave();

  void noteChange();
  void readLater(unsigned int milliseconds);
  void read();
  void readSim(const Modem &modem, Subscription subscription);
  void finishReading(const Subscription &subscription, bool answered);
  /// Asks the service. `then` gets null when no answer of the right type came.
  void ask(const std::string &path, const char *interface, const char *method, GVariant *parameters,
           const char *answerType, std::function<void(ModemManagerClient &client, GVariant *answer)> then);

  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  const Observer observer_;
  const Intervals intervals_;
  GLibPointer<GDBusConnection> connection_;
  std::optional<BusNameWatch> nameWatch_;
  std::optional<BusPeer> service_;  ///< absent while it is not there
  bool isReading_ = false;
  bool changed_ = false;  ///< since the reading under way began, or the next is due soon
  OneShotTimer nextReading_;
};

}  // namespace kx
