#include "platform/apple/AppleTelephony.h"

#import <CoreTelephony/CTCarrier.h>
#import <CoreTelephony/CTTelephonyNetworkInfo.h>

#include <utility>

#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleDeprecated.h"
#include "platform/apple/AppleText.h"

namespace kx {

namespace {

// Carriers have no successor: newer systems still answer, with placeholders for the codes.
KX_DEPRECATED_BEGIN

class AppleCarrier : public Carrier {
 public:
  explicit AppleCarrier(CTCarrier *carrier) : carrier_(carrier) {}

  std::optional<std::string> mobileCountryCode() override { return textOf(carrier_.mobileCountryCode); }
  std::optional<std::string> mobileNetworkCode() override { return textOf(carrier_.mobileNetworkCode); }

  CTCarrier *systemCarrier() const { return carrier_; }

 private:
  CTCarrier *const carrier_;
};

std::shared_ptr<Carrier> carrierOf(CTCarrier *carrier) {
  return carrier == nil ? nullptr : std::make_shared<AppleCarrier>(carrier);
}

CTCarrier *subscriberOf(CTTelephonyNetworkInfo *info) {
  if ([info respondsToSelector:@selector(subscriberCellularProvider)]) return info.subscriberCellularProvider;
  if (@available(iOS 13.0, *)) {
    NSString *const service = info.dataServiceIdentifier;
    if (service != nil) return [info.serviceSubscriberCellularProviders objectForKey:service];
  }
  return nil;
}

NSString *technologyOf(CTTelephonyNetworkInfo *info) {
  if ([info respondsToSelector:@selector(currentRadioAccessTechnology)])
    return info.currentRadioAccessTechnology;
  if (@available(iOS 13.0, *)) {
    NSString *const service = info.dataServiceIdentifier;
    if (service != nil) return [info.serviceCurrentRadioAccessTechnology objectForKey:service];
  }
  return nil;
}

class AppleTelephonyNetworkInfo : public TelephonyNetworkInfo {
 public:
  explicit AppleTelephonyNetworkInfo(CTTelephonyNetworkInfo *info) : info_(info) {}

  std::shared_ptr<Carrier> subscriberCellularProvider() override { return carrierOf(subscriberOf(info_)); }

  void setSubscriberCellularProviderDidUpdateNotifier(
      SubscriberCellularProviderDidUpdateNotifier notifier) override {
    if ([info_ respondsToSelector:@selector(setSubscriberCellularProviderDidUpdateNotifier:)]) {
      info_.subscriberCellularProviderDidUpdateNotifier = ^(CTCarrier *carrier) {
        runAtBoundary([&] { notifier(carrierOf(carrier)); });
      };
    } else if (@available(iOS 13.0, *)) {
      // It tells of any subscription: what counts is still the one that carries the data.
      __weak CTTelephonyNetworkInfo *const weakInfo = info_;
      info_.serviceSubscriberCellularProvidersDidUpdateNotifier = ^(NSString *) {
        runAtBoundary([&] {
          CTTelephonyNetworkInfo *const info = weakInfo;
          if (info != nil) notifier(carrierOf(subscriberOf(info)));
        });
      };
    }
  }

  std::optional<std::string> currentRadioAccessTechnology() override { return textOf(technologyOf(info_)); }

  CTTelephonyNetworkInfo *systemInfo() const { return info_; }

 private:
  CTTelephonyNetworkInfo *const info_;
};

}  // namespace

std::shared_ptr<TelephonyNetworkInfo> AppleTelephonyService::makeTelephonyNetworkInfo() {
  CTTelephonyNetworkInfo *const info = [[CTTelephonyNetworkInfo alloc] init];
  return info == nil ? nullptr : std::make_shared<AppleTelephonyNetworkInfo>(info);
}

CTTelephonyNetworkInfo *systemNetworkInfoOf(const std::shared_ptr<TelephonyNetworkInfo> &info) {
  const auto appleInfo = std::dynamic_pointer_cast<AppleTelephonyNetworkInfo>(info);
  return appleInfo == nullptr ? nil : appleInfo->systemInfo();
}

CTCarrier *systemCarrierOf(const std::shared_ptr<Carrier> &carrier) {
  const auto appleCarrier = std::dynamic_pointer_cast<AppleCarrier>(carrier);
  return appleCarrier == nullptr ? nil : appleCarrier->systemCarrier();
}

KX_DEPRECATED_END

}  // namespace kx
