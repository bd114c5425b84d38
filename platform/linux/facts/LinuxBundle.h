#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KXPublisher/platform/Bundle.h"
#include "platform/linux/facts/Environment.h"
#include "platform/linux/facts/FlatpakSandbox.h"

namespace kx {

/// The host application as it is installed: its identifier names it, and the desktop entry of that name says
/// what its executable is. A host without an identifier has no bundle.
class LinuxBundle : public Bundle, public BundleService {
 public:
  explicit LinuxBundle(const std::optional<std::string> &identifier,
                       Environment environment = Environment::ofProcess({"XDG_DATA_HOME", "HOME",
                                                                         "XDG_DATA_DIRS"}));

  /// The identifier of the process's default GApplication; where it has none, or no such application, the one
  /// that the host has `given` for itself; and where that is no text, or none was given, the one by which the
  /// `sandbox` knows the application. To be called on the main thread, or before any other thread uses
  /// GApplication: GLib guards it by nothing.
  static std::optional<std::string> hostIdentifier(
      const std::optional<std::string> &given = std::nullopt,
      const std::optional<FlatpakSandbox> &sandbox = std::nullopt);

  std::shared_ptr<Bundle> mainBundle() override;
  /// Knows no other bundle than the host's.
  std::shared_ptr<Bundle> bundleWithIdentifier(const std::optional<std::string> &requested) override;

  std::optional<std::string> bundleIdentifier() override { return identifier_; }
  /// "CFBundleExecutable" is the file name of the first word of Exec; the entry is read afresh.
  std::optional<Value> objectForInfoDictionaryKey(const std::string &key) override;

 private:
  /// The "applications" directories of the XDG base directories, the most important one first.
  std::vector<std::string> entryDirectories() const;
  std::optional<std::string> desktopEntry() const;

  const std::optional<std::string> identifier_;
  const Environment environment_;
};

}  // namespace kx
