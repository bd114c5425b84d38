#pragma once

#include <optional>
#include <string>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// The system call `uname`. May be called from any thread.
class KX_EXPORT SystemName {
 public:
  virtual ~SystemName() = default;

  /// The `machine` member of what `uname` fills in, the hardware identifier ("iPhone10,4", "aarch64"). The
  /// call's result code is not examined. Absent when the text is not valid UTF-8.
  virtual std::optional<std::string> machine() = 0;
};

}  // namespace kx
