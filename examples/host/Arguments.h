#pragma once

#include <KXPublisher/platform/linux/LinuxHost.h>

#include <optional>
#include <string>

/// What the characters on standard input do.
inline constexpr const char *commandHelp =
    "b background, f foreground, d/D debugging on/off, e explain, p print the message, q quit";

/// What kx-host was started with.
struct Arguments {
  std::string apiToken;
  std::string hostname;
  std::string applicationID = "com.example.KXHost";
  kx::LinuxHostOptions options;
  bool debug = false;
  bool explain = false;
  std::optional<double> exitAfter;  // seconds
};

/// Reads the command line. Absent, with a message on standard error, when the arguments are bad ones.
/// `--help` ends the process.
std::optional<Arguments> argumentsFrom(int count, char **values);
