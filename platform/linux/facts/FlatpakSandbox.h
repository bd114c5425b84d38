#pragma once

#include <optional>
#include <set>
#include <string>

namespace kx {

/// The Flatpak sandbox that the process runs in, as the file says that every such sandbox has.
class FlatpakSandbox {
 public:
  /// Absent outside of one. Reads one small file, if it is there. `root` is the directory that it is looked
  /// for under; empty for the system's own.
  static std::optional<FlatpakSandbox> ofProcess(const std::string &root = {});

  /// By which the application was installed, "org.example.Host"; absent when the file does not say.
  const std::optional<std::string> &applicationIdentifier() const { return applicationIdentifier_; }

  /// Whether a service on the system bus may be called from within.
  bool reachesSystemService(const std::string &name) const;

  /// The file, below the root.
  static constexpr const char *file = "/.flatpak-info";

 private:
  std::optional<std::string> applicationIdentifier_;
  bool hasSystemBus_ = false;             ///< all of it
  std::set<std::string> systemServices_;  ///< names, or "org.example.*" for that name and all below it
};

}  // namespace kx
