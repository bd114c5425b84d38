#pragma once

#include <glib.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kx::modem {

/// The modem's serial port: a socket in the abstract namespace, served by the default main context.
class ModemPort {
 public:
  /// Gives the lines to answer a command with.
  using Handler = std::function<std::vector<std::string>(const std::string &command)>;

  explicit ModemPort(Handler handler);
  ~ModemPort();
  ModemPort(const ModemPort &) = delete;
  ModemPort &operator=(const ModemPort &) = delete;

  /// What ModemManager calls the port: "abstract:" and the rest, and so unlike any other port's.
  const std::string &name() const { return name_; }

  /// Sends lines that nobody has asked for, to whoever has the port open.
  void report(const std::vector<std::string> &lines);

 private:
  struct Opened {
    guint source;
    std::string received;  ///< since the last command's end
  };

  bool receive(int descriptor);
  static void send(int descriptor, const std::vector<std::string> &lines);
  static gboolean whenOpened(gint descriptor, GIOCondition condition, gpointer data);
  static gboolean whenReceived(gint descriptor, GIOCondition condition, gpointer data);

  const Handler handler_;
  const std::string name_;
  int listening_;
  guint listeningSource_;
  std::map<int, Opened> opened_;  ///< by descriptor
};

}  // namespace kx::modem
