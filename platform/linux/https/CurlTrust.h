#pragma once

#include <curl/curl.h>

#include <optional>
#include <string>

#include "platform/linux/https/CurlSettings.h"

namespace kx {

/// Whom servers' certificates are trusted from: the system's certificate authorities, and the host's own
/// beside them. Verification itself is always on; see `CurlRequest`.
///
/// Where the system has a directory of certificates under the hashes of their names, single ones are looked
/// up in it. The alternative, curl's default, is to parse the whole bundle for every connection: 20 ms of
/// processor time instead of one.
class CurlTrust {
 public:
  /// Looks into the file system: not to be called on a thread of the host's.
  explicit CurlTrust(const CurlSettings &settings);

  /// Tells a request of it. An error when the host's file cannot be read.
  CURLcode applyTo(CURL *easy) const;

 private:
  std::optional<std::string> directory_;  ///< absent when the system has none
  std::optional<std::string> hostFile_;
};

}  // namespace kx
