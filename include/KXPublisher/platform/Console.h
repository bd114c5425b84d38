#pragma once

#include <string>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// The console log of the device (NSLog). May be called from any thread.
class KX_EXPORT Console {
 public:
  virtual ~Console() = default;

  /// Writes one line; the console adds its own time and process prefix. `line` has no line feed at its end
  /// and is printed as it is, whatever characters it holds. Failures to write are ignored.
  virtual void log(const std::string &line) = 0;
};

}  // namespace kx
