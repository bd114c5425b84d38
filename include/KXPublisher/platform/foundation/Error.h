#pragma once

#include <string>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// Why a service of the device failed. Holds no token, identifier or position: it is printed in log lines.
struct KX_EXPORT Error {
  std::string domain;  ///< whose `code` it is, for example "libcurl"
  long code = 0;
  std::string localizedDescription;  ///< one line for a person to read

  /// `description`: all three, 'Error Domain=libcurl Code=28 "Timeout was reached"'.
  std::string description() const;
};

}  // namespace kx
