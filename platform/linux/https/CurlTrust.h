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
/// processor time instead of one. There may be fewer in the directory than in the bundle, because somebody
/// has put some of his own there. To count them costs a fifth of a report, so that is done when a server is
/// not trusted by the directory alone; from then on the bundle is used beside it if it has more.
class CurlTrust {
 public:
  /// Looks into the file system: not to be called on a thread of the host's.
  explicit CurlTrust(const CurlSettings &settings);

  /// Tells a request of it. An error when the host's file cannot be read.
  CURLcode applyTo(CURL *easy) const;

  /// Whether a server that is not trusted now never will be.
  bool isWhole() const { return isWhole_; }
  /// Makes it whole. Whether more may be trusted then than before.
  bool lookFurther();

 private:
  const std::string systemBundle_;
  std::string directory_;  ///< empty when there are no such names in it
  std::string bundle_;     ///< empty when all that it has is in the directory, or as long as it seems so
  bool isWhole_ = false;
  std::optional<std::string> hostFile_;
};

}  // namespace kx
