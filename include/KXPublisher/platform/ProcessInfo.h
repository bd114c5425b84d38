#pragma once

#include <string>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// What the process knows of itself (NSProcessInfo). May be asked from any thread.
class KX_EXPORT ProcessInfo {
 public:
  virtual ~ProcessInfo() = default;

  /// `globallyUniqueString`: a text that is new at each call, on every device and in every process.
  virtual std::string globallyUniqueString() = 0;
};

}  // namespace kx
