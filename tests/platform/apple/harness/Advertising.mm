// AdSupport.

#import <AdSupport/AdSupport.h>

#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

using kx::standin::note;

kx::standin::Advertising &kx::standin::advertising() {
  static auto *const advertising = new Advertising;
  return *advertising;
}

@implementation ASIdentifierManager

+ (ASIdentifierManager *)sharedManager {
  note(__func__);
  static ASIdentifierManager *const manager = [ASIdentifierManager new];
  return kx::standin::advertising().isPresent ? manager : nil;
}

- (NSUUID *)advertisingIdentifier {
  note(__func__);
  NSString *const identifier = kx::standin::advertising().identifier;
  return identifier != nil ? [[NSUUID alloc] initWithUUIDString:identifier] : nil;
}

- (BOOL)isAdvertisingTrackingEnabled {
  note(__func__);
  return kx::standin::advertising().isTrackingEnabled;
}

@end
