#pragma once

#include <optional>
#include <string>

#include "platform/linux/https/CurlFunctions.h"
#include "platform/linux/https/CurlSettings.h"

namespace kx {

/// Whom servers' certificates are trusted from: the system's certificate authorities, and the host's own
/// beside them. Verification itself is always on; see `CurlRequest`.
///
/// Where the system has a directory of certificates under the hashes of their names, single ones are looked
/// up in it. The alternative, curl's default, is to parse the whole bundle for every connection: 20 ms of
/// processor time instead of one. A directory in which there are fewer than in the bundle, because somebody
/// has put some of his own there, is used beside the bundle.
class CurlTrust {
 public:
  /// Looks into the file system: not to be called on a thread of the host's.
  explicit CurlTrust(const CurlSettings &settings);

  /// Tells a request of it. An error when the host's file cannot be read.
  CURLcode applyTo(CURL *easy) const;

 private:
  std::string directory_;  ///< empty when there are no such names in it
  std::string bundle_;     ///< empty when all that it has is in the directory
  std::optional<std::string> hostFile_;
};

}  // namespace kx
