#pragma once

#include <string>
#include <utility>
#include <vector>

#include "KXPublisher/platform/Locale.h"
#include "platform/linux/facts/Environment.h"

namespace kx {

/// The languages of the locale settings: those of LANGUAGE, then that of the locale for messages (LC_ALL,
/// LC_MESSAGES or LANG), by gettext's rules: in the locale "C" there are none at all.
class LinuxLocale : public Locale {
 public:
  explicit LinuxLocale(Environment environment = Environment::ofProcess({"LANGUAGE", "LC_ALL", "LC_MESSAGES",
                                                                         "LANG"}))
      : environment_(std::move(environment)) {}

  std::vector<std::string> preferredLanguages() override;

 private:
  const Environment environment_;
};

}  // namespace kx
