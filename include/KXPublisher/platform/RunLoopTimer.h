#pragma once

#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// A timer (NSTimer). May be used from any thread. While it is valid it keeps its target alive.
class KX_EXPORT RunLoopTimer : public Object {
 public:
  /// `isValid`: true from its making until it is invalidated or, if it does not repeat, fires: when the
  /// action of a one-shot timer runs, the timer is already invalid.
  virtual bool isValid() const = 0;

  /// `invalidate`: the timer never fires again and lets go of its target. Harmless when repeated.
  virtual void invalidate() = 0;
};

}  // namespace kx
