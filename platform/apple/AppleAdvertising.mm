#include "platform/apple/AppleAdvertising.h"

#import <AdSupport/AdSupport.h>

#include "platform/apple/AppleText.h"

// Later systems keep the interfaces of the first ones, but warn of them.
#pragma clang diagnostic ignored "-Wdeprecated-declarations"

namespace kx {

namespace {

class AppleAdvertisingIdentifierManager : public AdvertisingIdentifierManager {
 public:
  explicit AppleAdvertisingIdentifierManager(ASIdentifierManager *manager) : manager_(manager) {}

  std::optional<std::string> advertisingIdentifier() override {
    return textOf(manager_.advertisingIdentifier.UUIDString);
  }
  bool isAdvertisingTrackingEnabled() override { return manager_.isAdvertisingTrackingEnabled; }

 private:
  ASIdentifierManager *const manager_;
};

}  // namespace

std::shared_ptr<AdvertisingIdentifierManager> AppleAdvertisingService::sharedManager() {
  ASIdentifierManager *const manager = [ASIdentifierManager sharedManager];
  return manager == nil ? nullptr : std::make_shared<AppleAdvertisingIdentifierManager>(manager);
}

}  // namespace kx
