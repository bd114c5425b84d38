#include "platform/apple/AppleLocationSwitch.h"

#import <CoreLocation/CoreLocation.h>

#include "KXPublisher/platform/DispatchQueue.h"
#include "platform/apple/AppleDispatch.h"

namespace kx {

bool AppleLocationSwitch::isOn() {
  if (![NSThread isMainThread]) return askSystem();
  bool known = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    known = known_;
    told_ = known;
  }
  AppleDispatchQueue elsewhere(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0));
  elsewhere.async([self = shared_from_this()] { self->askSystem(); });
  return known;
}

bool AppleLocationSwitch::askSystem() {
  const bool isOn = [CLLocationManager locationServicesEnabled];
  bool wasToldWrong = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    known_ = isOn;
    wasToldWrong = told_ && *told_ != isOn;
    if (wasToldWrong) told_ = isOn;
  }
  if (wasToldWrong) performOnMainThread([self = shared_from_this()] { self->toldWrong_(); });
  return isOn;
}

}  // namespace kx
