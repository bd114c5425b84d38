#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// The device's identifier for advertising (ASIdentifierManager). May be asked from any thread.
class KX_EXPORT AdvertisingIdentifierManager : public Object {
 public:
  /// The text of `advertisingIdentifier`, its `UUIDString`: 36 characters, 8-4-4-4-12, upper case on iOS; all
  /// zeros when the user limits tracking. Absent when the device has no identifier.
  virtual std::optional<std::string> advertisingIdentifier() = 0;

  /// `isAdvertisingTrackingEnabled`: false when the user has asked not to be tracked.
  virtual bool isAdvertisingTrackingEnabled() = 0;
};

/// How the identifier's manager is reached. May be asked from any thread.
class KX_EXPORT AdvertisingService {
 public:
  virtual ~AdvertisingService() = default;

  /// `sharedManager`: a null pointer when the device has no such service.
  virtual std::shared_ptr<AdvertisingIdentifierManager> sharedManager() = 0;
};

}  // namespace kx
