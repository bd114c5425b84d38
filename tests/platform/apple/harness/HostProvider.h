#pragma once

#import <KXPublisher/KXPublisherClasses.h>

#include <atomic>

/// A provider of the host's.
@interface KXTestWeather : KXData {
 @public
  std::atomic<bool> permitted;
  std::atomic<int> computations;
  std::atomic<int> computationsOnTheMainThread;
  std::atomic<bool> wasSetUpFirst;
}
@end

/// One that is recomputed periodically.
@interface KXTestClock : KXTestWeather
@end

namespace kx {

/// What it computes, as the library keeps it.
KXFacts *weather();

/// Runs the main run loop until the provider knows exactly that.
bool comesToKnow(::KXData *provider, KXFacts *facts);

}  // namespace kx
