#pragma once

#import <Foundation/Foundation.h>

#include <exception>

namespace kx {

/// Says on the console that an exception ended here. Null: one that is no `std::exception`, such as an
/// NSException.
void reportEndedException(const std::exception *_Nullable exception) noexcept;

/// Runs `work` where nothing may be thrown any further: in a callback from a framework. What it throws, of
/// whichever language, ends here, with one line on the console; what it autoreleases is released.
template <class Work>
void runAtBoundary(Work &&work) noexcept {
  @autoreleasepool {
    try {
      work();
    } catch (const std::exception &exception) {
      reportEndedException(&exception);
    } catch (...) {
      reportEndedException(nullptr);
    }
  }
}

}  // namespace kx
