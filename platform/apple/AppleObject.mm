#include "platform/apple/AppleObject.h"

#include <map>
#include <mutex>

#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleText.h"

/// Stands for an object of the library's own.
@interface KXPublisherObject : NSObject <KXPublisherStandIn>
- (instancetype)initWithObject:(const std::shared_ptr<kx::Object> &)object;
@end

@implementation KXPublisherObject {
  std::weak_ptr<kx::Object> _object;
}

- (instancetype)initWithObject:(const std::shared_ptr<kx::Object> &)object {
  self = [super init];
  if (self != nil) _object = object;
  return self;
}

- (std::shared_ptr<kx::Object>)kxPublisherObject {
  return _object.lock();
}

- (NSString *)description {
  NSString *text = nil;
  kx::runAtBoundary([&text, self] {
    if (const auto object = [self kxPublisherObject]) text = kx::stringOf(object->description());
  });
  return text != nil ? text : [super description];
}

@end

namespace kx {

namespace {

StandInMaker standInMaker = nullptr;

}  // namespace

id standInFor(const std::shared_ptr<Object> &object) {
  if (object == nullptr) return nil;
  if (standInMaker != nullptr) {
    id const standIn = standInMaker(object);
    if (standIn != nil) return standIn;
  }
  static auto &standIns = *new std::map<const Object *, KXPublisherObject *>;
  static auto &mutex = *new std::mutex;  // no destructor runs while the process exits
  const std::lock_guard<std::mutex> lock(mutex);
  KXPublisherObject *standIn = standIns[object.get()];
  if (standIn == nil ||
      [standIn kxPublisherObject] != object) {  // none yet, or that of an earlier object at this address
    standIn = [[KXPublisherObject alloc] initWithObject:object];
    standIns[object.get()] = standIn;
  }
  return standIn;
}

std::shared_ptr<Object> objectBehind(id standIn) {
  return [standIn conformsToProtocol:@protocol(KXPublisherStandIn)]
             ? [static_cast<id<KXPublisherStandIn>>(standIn) kxPublisherObject]
             : nullptr;
}

void setStandInMaker(StandInMaker maker) {
  standInMaker = maker;
}

}  // namespace kx
