#pragma once

#import <Foundation/Foundation.h>

#include <exception>

#include "platform/EndedException.h"

namespace kx {

/// The same of an Objective-C object that was thrown: of an NSException its name and its reason.
void reportEndedException(id _Nullable exception) noexcept;

/// Runs `work` where nothing may be thrown any further: in a callback from a framework. What it throws, of
/// whichever language, ends here, with one line in the log; what it autoreleases is released.
///
/// `catch (id)` and not `@catch (NSException *)`: it takes every Objective-C object, on each Objective-C
/// runtime that the library is compiled for.
template <class Work>
void runAtBoundary(Work &&work) noexcept {
  @autoreleasepool {
    id thrown = nil;
    try {
      work();
    } catch (const std::exception &exception) {
      reportEndedException(exception.what());
    } catch (id exception) {
      thrown = exception;
    } catch (...) {
      reportEndedException("not a std::exception");
    }
    // Here, since it may raise again when it is asked what it is.
    if (thrown != nil) reportEndedException(thrown);
  }
}

}  // namespace kx
