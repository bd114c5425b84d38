#include "bindings/objective-c/ObjectiveCPublisher.h"

#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleText.h"

// The library's door for Objective-C and Swift, in front of the publisher itself.

@implementation KXPublisher {
  std::shared_ptr<kx::KXPublisher> _publisher;
}

// The compiler does not let a host call it; who gets here by the runtime gets nothing.
- (instancetype)init {
  return nil;
}

+ (KXPublisher *)sharedInstanceWithApiToken:(NSString *)apiToken hostname:(NSString *)hostname {
  static KXPublisher *sharedInstance;
  static dispatch_once_t once;
  dispatch_once(&once, ^{
    std::shared_ptr<kx::KXPublisher> publisher;
    kx::runAtBoundary([&] {
      publisher = kx::KXPublisher::sharedInstanceWithApiToken(kx::textOf(apiToken), kx::textOf(hostname));
    });
    sharedInstance = [[KXPublisher alloc] initWithKXPublisherObject:publisher];
  });
  return sharedInstance;
}

- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXPublisher> &)object {
  self = [super init];
  if (self != nil) _publisher = object;
  return self;
}

- (const std::shared_ptr<kx::KXPublisher> &)kxPublisherObject {
  return _publisher;
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
