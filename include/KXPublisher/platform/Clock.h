#pragma once

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// The device's wall clock (NSDate). May be asked from any thread.
class KX_EXPORT Clock {
 public:
  virtual ~Clock() = default;

  /// `timeIntervalSince1970`: seconds since 1970-01-01 00:00 UTC, with fraction. It follows the user's
  /// changes of the clock, so it may step back.
  virtual double timeIntervalSince1970() = 0;
};

}  // namespace kx
