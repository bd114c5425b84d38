#import <KXPublisher/KXPublisherClasses.h>

#include <objc/runtime.h>

#include <map>
#include <string>
#include <utility>

#include "KXPublisher/providers/KXScheduler.h"
#include "bindings/objective-c/ObjectiveCFace.h"
#include "bindings/objective-c/ObjectiveCTimers.h"
#include "platform/apple/AppleText.h"

@interface KXScheduleInfo ()
- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXScheduleInfo> &)object;
- (const std::shared_ptr<kx::KXScheduleInfo> &)kxPublisherObject;
@end

@implementation KXScheduleInfo {
  kx::Behind<kx::KXScheduleInfo> _info;
}

// The compiler does not let a host call it; who gets here by the runtime gets nothing.
- (instancetype)init {
  return nil;
}

- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXScheduleInfo> &)object {
  self = [super init];
  if (self != nil) _info.set(object);
  return self;
}

- (instancetype)initWithTimer:(NSTimer *)timer
                    forTarget:(id)target
                     selector:(SEL)selector
             withTimeInterval:(NSTimeInterval)timeInterval {
  const auto info =
      std::make_shared<kx::KXScheduleInfo>(kx::timerOf(timer), kx::HostTarget::make(target, selector),
                                           kx::HostTarget::selectorOf(selector), timeInterval);
  self = [self initWithKXPublisherObject:info];
  if (self != nil) kx::becomeFaceOf(info.get(), self);
  return self;
}

- (const std::shared_ptr<kx::KXScheduleInfo> &)kxPublisherObject {
  return _info.get();
}

- (NSTimer *)timer {
  return kx::systemTimerOf(_info->timer());
}

- (void)setTimer:(NSTimer *)timer {
  _info->setTimer(kx::timerOf(timer));
}

- (id)target {
  return kx::targetBehind(_info->target());
}

- (void)setTarget:(id)target {
  _info->setTarget(kx::HostTarget::make(target, self.selector));
}

- (SEL)selector {
  const char *const name = _info->selector().name();
  return name == nullptr ? nullptr : sel_registerName(name);
}

- (void)setSelector:(SEL)selector {
  // The two go together: a host's target is called by an operation that the host has named.
  _info->setTarget(kx::HostTarget::make(self.target, selector));
  _info->setSelector(kx::HostTarget::selectorOf(selector));
}

- (NSTimeInterval)timeInterval {
  return _info->timeInterval();
}

- (void)setTimeInterval:(NSTimeInterval)timeInterval {
  _info->setTimeInterval(timeInterval);
}

- (NSString *)description {
  return kx::stringOf(_info->description());
}

@end

@interface KXScheduler ()
- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXScheduler> &)object;
@end

@implementation KXScheduler {
  kx::Behind<kx::KXScheduler> _scheduler;
}

+ (KXScheduler *)sharedInstance {
  static KXScheduler *const sharedInstance =
      kx::faceOfInstance<KXScheduler>(kx::KXScheduler::sharedInstance());
  return sharedInstance;
}

- (instancetype)init {
  const auto scheduler = std::make_shared<kx::KXScheduler>();
  self = [self initWithKXPublisherObject:scheduler];
  if (self != nil) kx::becomeFaceOf(scheduler.get(), self);
  return self;
}

- (instancetype)initWithKXPublisherObject:(const std::shared_ptr<kx::KXScheduler> &)object {
  self = [super init];
  if (self != nil) _scheduler.set(object);
  return self;
}

+ (NSString *)keyForTarget:(id)target selector:(SEL)selector {
  const auto key = kx::KXScheduler::keyForTarget(kx::HostTarget::make(target, selector),
                                                 kx::HostTarget::selectorOf(selector));
  return key ? kx::stringOf(*key) : nil;
}

- (NSDictionary<NSString *, KXScheduleInfo *> *)scheduleInfoMap {
  NSMutableDictionary<NSString *, KXScheduleInfo *> *const map = [NSMutableDictionary dictionary];
  for (const auto &[key, info] : _scheduler->scheduleInfoMap()) {
    NSString *const name = kx::stringOf(key);
    KXScheduleInfo *const face = kx::faceOf<KXScheduleInfo>(info);
    if (name != nil && face != nil) [map setObject:face forKey:name];
  }
  return map;
}

- (void)setScheduleInfoMap:(NSDictionary<NSString *, KXScheduleInfo *> *)scheduleInfoMap {
  std::map<std::string, std::shared_ptr<kx::KXScheduleInfo>> map;
  for (NSString *name in scheduleInfoMap) {
    if (const auto key = kx::textOf(name))
      map[*key] = [[scheduleInfoMap objectForKey:name] kxPublisherObject];
  }
  _scheduler->setScheduleInfoMap(std::move(map));
}

- (KXScheduleInfo *)scheduleInfoForTarget:(id)target selector:(SEL)selector {
  return kx::faceOf<KXScheduleInfo>(_scheduler->scheduleInfoForTarget(kx::HostTarget::make(target, selector),
                                                                      kx::HostTarget::selectorOf(selector)));
}

- (void)setScheduleInfo:(KXScheduleInfo *)scheduleInfo forTarget:(id)target selector:(SEL)selector {
  if (scheduleInfo == nil) return;
  _scheduler->setScheduleInfo([scheduleInfo kxPublisherObject], kx::HostTarget::make(target, selector),
                              kx::HostTarget::selectorOf(selector));
}

- (void)scheduleTimerForTarget:(id)target
                      selector:(SEL)selector
              withTimeInverval:(NSTimeInterval)timeInterval {
  _scheduler->scheduleTimerForTarget(kx::HostTarget::make(target, selector),
                                     kx::HostTarget::selectorOf(selector), timeInterval);
}

- (void)setTimeInterval:(NSTimeInterval)timeInterval forTarget:(id)target selector:(SEL)selector {
  _scheduler->setTimeInterval(timeInterval, kx::HostTarget::make(target, selector),
                              kx::HostTarget::selectorOf(selector));
}

- (void)pauseTimerForTarget:(id)target selector:(SEL)selector {
  _scheduler->pauseTimerForTarget(kx::HostTarget::make(target, selector),
                                  kx::HostTarget::selectorOf(selector));
}

- (void)resumeTimerForTarget:(id)target selector:(SEL)selector {
  _scheduler->resumeTimerForTarget(kx::HostTarget::make(target, selector),
                                   kx::HostTarget::selectorOf(selector));
}

- (void)removeTimerForTarget:(id)target selector:(SEL)selector {
  _scheduler->removeTimerForTarget(kx::HostTarget::make(target, selector),
                                   kx::HostTarget::selectorOf(selector));
}

- (NSString *)description {
  return kx::stringOf(_scheduler->description());
}

@end
