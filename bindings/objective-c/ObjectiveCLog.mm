#import <KXPublisher/KXPublisherClasses.h>

#include <cstdarg>

#include "KXPublisher/diagnostics/KXLog.h"
#include "bindings/objective-c/ObjectiveCFace.h"
#include "platform/apple/AppleText.h"

@interface KXLog ()
- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXLog> &)object;
@end

@implementation KXLog {
  kx::Behind<kx::KXLog> _log;
}

// The compiler does not let a host call it; who gets here by the runtime gets nothing.
- (instancetype)init {
  return nil;
}

+ (KXLog *)sharedInstanceWithLogLevel:(KXLogLevel)logLevel {
  static KXLog *const sharedInstance =
      kx::faceOfInstance<KXLog>(kx::KXLog::sharedInstanceWithLogLevel(logLevel));
  return sharedInstance;
}

+ (KXLog *)sharedInstance {
  return [self sharedInstanceWithLogLevel:KXLogLevelError];
}

- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXLog> &)object {
  self = [super init];
  if (self != nil) _log.set(object);
  return self;
}

- (KXLogLevel)logLevel {
  return static_cast<KXLogLevel>(_log->logLevel());
}

- (void)setLogLevel:(KXLogLevel)logLevel {
  _log->setLogLevel(logLevel);
}

- (void)log:(KXLogLevel)level message:(NSString *)message {
  kx::raising([&] { _log->log(level, kx::textOf(message).value_or("(null)")); });
}

- (NSString *)description {
  return kx::stringOf(_log->description());
}

@end

void KXLogError(NSString *format, ...) {
  KXLog *const log = [KXLog sharedInstance];
  va_list arguments;
  va_start(arguments, format);
  NSString *const message = [[NSString alloc] initWithFormat:format arguments:arguments];
  va_end(arguments);
  [log log:KXLogLevelError message:message];
}
