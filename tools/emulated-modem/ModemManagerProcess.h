#pragma once

#include <gio/gio.h>

#include <string>

#include "platform/linux/bus/GLibPointers.h"

namespace kx::modem {

/// A ModemManager of our own, on a message bus of our own, which looks at no device but the port that it is
/// given, and has the modem there enabled whenever there is one. It ends with this object, or with the
/// process that has made it.
///
/// ModemManager asks the bus's authority whether somebody may enable a modem: that authority is here, too,
/// and allows everything.
class ModemManagerProcess {
 public:
  /// Throws `std::runtime_error` when the bus or the program does not work.
  ModemManagerProcess(const std::string &program, const std::string &busAddress, std::string portName);
  ~ModemManagerProcess();
  ModemManagerProcess(const ModemManagerProcess &) = delete;
  ModemManagerProcess &operator=(const ModemManagerProcess &) = delete;

  /// Plugs the modem out and in again, as ModemManager sees it.
  void replugModem();

 private:
  void becomeAuthority();
  void plugIn();
  void launch(const std::string &program, const std::string &busAddress);
  void call(const char *path, const char *interface, const char *method, GVariant *parameters);

  static void whenAppeared(GDBusConnection *connection, const gchar *name, const gchar *owner, gpointer data);
  static void whenModemAdded(GDBusConnection *connection, const gchar *sender, const gchar *path,
                             const gchar *interface, const gchar *signal, GVariant *parameters,
                             gpointer data);

  const std::string portName_;
  GLibPointer<GDBusConnection> bus_;
  GLibPointer<GSubprocess> process_;
  guint nameWatch_ = 0;
  guint modemAdded_ = 0;
  int plugged_ = 0;  ///< how often the modem was plugged in
};

}  // namespace kx::modem
