#import <KXPublisher/KXPublisher.h>

#include <memory>

#include "KXPublisher/KXPublisher.hpp"  // the one for C++
#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleText.h"

// The library's door for Objective-C and Swift, in front of the publisher itself.

@implementation KXPublisher {
  std::shared_ptr<kx::KXPublisher> _publisher;  // null when there was no memory for one
}

+ (KXPublisher *)sharedInstanceWithApiToken:(NSString *)apiToken hostname:(NSString *)hostname {
  static KXPublisher *sharedInstance;
  static dispatch_once_t once;
  dispatch_once(&once, ^{
    sharedInstance = [[KXPublisher alloc] initWithApiToken:apiToken hostname:hostname];
  });
  return sharedInstance;
}

- (instancetype)initWithApiToken:(NSString *)apiToken hostname:(NSString *)hostname {
  self = [super init];
  if (self != nil) {
    kx::runAtBoundary([&] {
      _publisher = kx::KXPublisher::sharedInstanceWithApiToken(kx::textOf(apiToken), kx::textOf(hostname));
    });
  }
  return self;
}

- (void)enableDebugging {
  if (_publisher != nullptr) _publisher->enableDebugging();
}

- (void)disableDebugging {
  if (_publisher != nullptr) _publisher->disableDebugging();
}

+ (NSString *)diagnosis {
  NSString *diagnosis = nil;
  kx::runAtBoundary([&] { diagnosis = kx::stringOf(kx::KXPublisher::diagnosis().text()); });
  return diagnosis != nil ? diagnosis : @"";
}

- (NSString *)description {
  NSString *description = nil;
  kx::runAtBoundary([&] {
    if (_publisher != nullptr) description = kx::stringOf(_publisher->description());
  });
  return description != nil ? description : [super description];
}

@end
