#pragma once

#include <glib.h>

#include <string>

#include "KXPublisher/platform/Console.h"

namespace kx {

/// GLib's structured log: lines reach the journal when the process's standard error goes there, otherwise
/// standard error itself, or whatever writer the host has installed.
class LinuxConsole : public Console {
 public:
  static constexpr const char *domain = "KXPublisher";
  /// The one level that is printed whatever G_MESSAGES_DEBUG says, and that G_DEBUG=fatal-warnings, with
  /// which developers run their programs, does not turn into an abort.
  static constexpr GLogLevelFlags level = G_LOG_LEVEL_MESSAGE;

  void log(const std::string &line) override;
};

}  // namespace kx
