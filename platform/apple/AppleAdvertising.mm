#include "platform/apple/AppleAdvertising.h"

#import <AdSupport/AdSupport.h>

#include "platform/apple/AppleDeprecated.h"
#include "platform/apple/AppleText.h"

namespace kx {

namespace {

class AppleAdvertisingIdentifierManager : public AdvertisingIdentifierManager {
 public:
  explicit AppleAdvertisingIdentifierManager(ASIdentifierManager *manager) : manager_(manager) {}

  std::optional<std::string> advertisingIdentifier() override {
    return textOf(manager_.advertisingIdentifier.UUIDString);
  }

  // What is reported is this answer. Its successor, of another framework, gives another one.
  KX_DEPRECATED_BEGIN
  bool isAdvertisingTrackingEnabled() override { return manager_.isAdvertisingTrackingEnabled; }
  KX_DEPRECATED_END

 private:
  ASIdentifierManager *const manager_;
};

}  // namespace

std::shared_ptr<AdvertisingIdentifierManager> AppleAdvertisingService::sharedManager() {
  ASIdentifierManager *const manager = [ASIdentifierManager sharedManager];
  return manager == nil ? nullptr : std::make_shared<AppleAdvertisingIdentifierManager>(manager);
}

}  // namespace kx
