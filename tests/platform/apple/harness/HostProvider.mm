#include "tests/platform/apple/harness/HostProvider.h"

#include "tests/platform/apple/harness/StandIn.h"

@implementation KXTestWeather

+ (BOOL)needsMonitoring {
  return NO;
}

- (BOOL)hasPermissions {
  return permitted;
}

- (KXFacts *)computeData {
  ++computations;
  if ([NSThread isMainThread]) ++computationsOnTheMainThread;
  return @{
    @"weather" : @"fair",
    @"degrees" : @21.5,
    @"windows" : @3,
    @"open" : @NO,
    @"gone" : [NSNull null],
    @"nested" : @{@"rain" : @[ @"none", [NSDate date] ]},
  };
}

- (void)instanceDidStartInit {
  wasSetUpFirst = self.sharedScheduler == nil && self.data == nil;
  permitted = true;
}

@end

@implementation KXTestClock
+ (BOOL)needsMonitoring {
  return YES;
}
+ (NSTimeInterval)monitoringTimeInterval {
  return 0.02;
}
@end

namespace kx {

KXFacts *weather() {
  return @{
    @"weather" : @"fair",
    @"degrees" : @21.5,
    @"windows" : @3,
    @"open" : @NO,
    @"nested" : @{@"rain" : @[ @"none" ]},
  };
}

bool comesToKnow(::KXData *provider, KXFacts *facts) {
  return standin::runMainLoopUntil([=] { return [provider.data isEqual:facts]; });
}

}  // namespace kx
