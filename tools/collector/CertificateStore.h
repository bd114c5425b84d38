#pragma once

#include <filesystem>
#include <string>

#include "tools/collector/CertificateAuthority.h"

namespace kx::collector {

/// Where the collector keeps its certificate authority between runs: `ca.pem`, which clients have to trust,
/// and `ca-key.pem`, which only the owner can read.
class CertificateStore {
 public:
  /// The directory is made when it is missing.
  explicit CertificateStore(std::filesystem::path directory) : directory_(std::move(directory)) {}

  /// "$XDG_STATE_HOME/kx-collector" or "~/.local/state/kx-collector". Throws std::runtime_error when neither
  /// variable is set.
  static std::filesystem::path defaultDirectory();

  /// The authority that is kept here; on the first call ever a new one. Collectors that start at the same
  /// time get the same one. Throws std::runtime_error or std::filesystem::filesystem_error with the reason:
  /// it is never replaced, whatever is the matter with it, since devices trust it; not even when it has
  /// expired, its key is missing, or others may read its key.
  CertificateAuthority authority() const;

  /// A new authority in the place of one that is kept here, in whatever state that is. Throws the same.
  CertificateAuthority newAuthority() const;

  std::filesystem::path authorityFile() const { return directory_ / "ca.pem"; }
  std::filesystem::path authorityKeyFile() const { return directory_ / "ca-key.pem"; }

 private:
  CertificateAuthority existing() const;
  CertificateAuthority made() const;

  std::filesystem::path directory_;
};

/// Throws std::runtime_error when somebody else than its owner may read or change that file, or when it is
/// not there.
void refuseToShare(const std::filesystem::path &file);

/// The whole content of a file. Throws std::runtime_error with the reason.
std::string contentOf(const std::filesystem::path &file);

}  // namespace kx::collector
