#include <glib-unix.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tools/emulated-modem/AtModem.h"
#include "tools/emulated-modem/ModemManagerProcess.h"
#include "tools/emulated-modem/ModemPort.h"

using namespace kx::modem;

namespace {

constexpr const char *usage =
    R"(Runs ModemManager with one emulated modem, on a message bus that is not the system's.

usage: kx-emulated-modem --bus ADDRESS [--modem-manager PROGRAM] [--sim CODE|none] [--technology NAME] [--verbose]

  --bus ADDRESS            the bus, "unix:path=FILE"; must let anybody own any name
  --modem-manager PROGRAM  default: /usr/sbin/ModemManager
  --sim CODE               the operator of the SIM; default: 26201
  --technology NAME        of the network it is registered with; default: lte
  --verbose                shows the AT dialogue on standard error

Commands, one a line on standard input; its end ends the program:

  sim out                  takes the SIM out, and resets the modem
  sim in CODE              puts in a SIM of that operator: three digits, then two or three; resets the modem
  technology NAME          none, gsm, umts, edge, hsdpa, hsupa, hspa, lte
)";

struct Options {
  std::string bus;
  std::string modemManager = "/usr/sbin/ModemManager";
  bool verbose = false;
};

/// The modem, its port and the ModemManager that looks after it.
class Emulation {
 public:
  Emulation(AtModem modem, const Options &options)
      : modem_(std::move(modem)),
        port_([this, verbose = options.verbose](const std::string &command) {
          auto lines = modem_.answer(command);
          if (verbose) std::cerr << command << " -> " << lines.front() << std::endl;
          return lines;
        }),
        manager_(options.modemManager, options.bus, port_.name()) {}

  /// False when there is no such command.
  bool obey(const std::string &line) {
    std::istringstream words(line);
    std::string command;
    std::string argument;
    std::string code;
    words >> command >> argument >> code;
    if (command == "technology" && modem_.useTechnology(argument)) {
      port_.report(modem_.registrationReport());
      return true;
    }
    if (command != "sim") return false;
    if (argument == "out") {
      modem_.removeSim();
    } else if (argument != "in" || !modem_.insertSim(code)) {
      return false;
    }
    manager_.replugModem();
    return true;
  }

 private:
  AtModem modem_;
  ModemPort port_;
  ModemManagerProcess manager_;
};

/// Standard input, as commands.
struct Input {
  Emulation &emulation;
  GMainLoop *loop;
  std::string received;

  static gboolean whenReceived(gint descriptor, GIOCondition /*condition*/, gpointer data) {
    auto &input = *static_cast<Input *>(data);
    std::array<char, 256> chunk;
    const ssize_t size = read(descriptor, chunk.data(), chunk.size());
    if (size <= 0) {
      g_main_loop_quit(input.loop);
      return G_SOURCE_REMOVE;
    }
    input.received.append(chunk.data(), static_cast<std::size_t>(size));
    for (auto end = input.received.find('\n'); end != std::string::npos; end = input.received.find('\n')) {
      const std::string line = input.received.substr(0, end);
      input.received.erase(0, end + 1);
      if (!input.emulation.obey(line)) std::cerr << "kx-emulated-modem: not a command: " << line << std::endl;
    }
    return G_SOURCE_CONTINUE;
  }
};

gboolean quit(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop *>(loop));
  return G_SOURCE_CONTINUE;
}

/// Reads the arguments into `modem` and `options`; false when they make no sense.
bool readArguments(const std::vector<std::string> &arguments, AtModem &modem, Options &options) {
  for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
    if (*argument == "--verbose") {
      options.verbose = true;
      continue;
    }
    const std::string &name = *argument;
    if (++argument == arguments.end()) return false;
    if (name == "--bus") {
      options.bus = *argument;
    } else if (name == "--modem-manager") {
      options.modemManager = *argument;
    } else if (name == "--sim" && *argument == "none") {
      modem.removeSim();
    } else if (name == "--sim") {
      if (!modem.insertSim(*argument)) return false;
    } else if (name != "--technology" || !modem.useTechnology(*argument)) {
      return false;
    }
  }
  return !options.bus.empty();
}

}  // namespace

int main(int argc, char **argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments == std::vector<std::string>{"--help"}) {
    std::cout << usage;
    return 0;
  }
  AtModem modem;
  Options options;
  if (!readArguments(arguments, modem, options)) {
    std::cerr << usage;
    return 2;
  }
  try {
    Emulation emulation(modem, options);
    GMainLoop *const loop = g_main_loop_new(nullptr, FALSE);
    Input input{emulation, loop, ""};
    g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), &Input::whenReceived, &input);
    for (const int signal : {SIGINT, SIGTERM}) g_unix_signal_add(signal, &quit, loop);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
  } catch (const std::exception &error) {
    std::cerr << "kx-emulated-modem: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
