// CoreTelephony.

#import <CoreTelephony/CTTelephonyNetworkInfo.h>

#include <thread>

#include "tests/platform/apple/harness/LiveObjects.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

using kx::standin::note;
using kx::standin::telephony;

namespace {

kx::standin::LiveObjects<CTTelephonyNetworkInfo> &infos() {
  static auto *const infos = new kx::standin::LiveObjects<CTTelephonyNetworkInfo>;
  return *infos;
}

NSString *service() {
  return @(kx::standin::telephonyService);
}

/// By service: that for the data service, and the other one for each of the other subscriptions.
NSDictionary *byService(id forTheData, id forOthers) {
  NSMutableDictionary *const values = [NSMutableDictionary new];
  if (forTheData != nil) [values setObject:forTheData forKey:service()];
  for (int number = 1; number <= telephony().otherSubscriptions; ++number) {
    [values setObject:forOthers forKey:[NSString stringWithFormat:@"%d", number]];
  }
  return values;
}

/// How the one subscriber is asked for.
NSSet<NSString *> *namedInterfaces() {
  return [NSSet setWithObjects:@"subscriberCellularProvider", @"currentRadioAccessTechnology",
                               @"setSubscriberCellularProviderDidUpdateNotifier:", nil];
}

/// How each service's subscriber is asked for.
NSSet<NSString *> *serviceInterfaces() {
  return [NSSet setWithObjects:@"serviceSubscriberCellularProviders", @"serviceCurrentRadioAccessTechnology",
                               @"setServiceSubscriberCellularProvidersDidUpdateNotifier:",
                               @"dataServiceIdentifier", nil];
}

}  // namespace

@implementation CTCarrier {
  NSString *_countryCode;
  NSString *_networkCode;
}

/// The subscriber's carrier now.
- (instancetype)init {
  return [self initWithCountryCode:telephony().mobileCountryCode networkCode:telephony().mobileNetworkCode];
}

- (instancetype)initWithCountryCode:(NSString *)countryCode networkCode:(NSString *)networkCode {
  if ((self = [super init]) != nil) {
    _countryCode = countryCode;
    _networkCode = networkCode;
  }
  return self;
}

- (NSString *)mobileCountryCode {
  note(__func__);
  return _countryCode;
}

- (NSString *)mobileNetworkCode {
  note(__func__);
  return _networkCode;
}

@end

@implementation CTTelephonyNetworkInfo

- (BOOL)respondsToSelector:(SEL)selector {
  NSString *const name = NSStringFromSelector(selector);
  if ([namedInterfaces() containsObject:name]) return telephony().hasNamedInterfaces;
  if ([serviceInterfaces() containsObject:name]) return telephony().hasServiceInterfaces;
  return [super respondsToSelector:selector];
}

/// Raises, as any object does that is asked for what it has not.
- (void)requireResponseTo:(SEL)selector {
  if (![self respondsToSelector:selector]) [self doesNotRecognizeSelector:selector];
}

- (instancetype)init {
  note(__func__);
  if (!telephony().isPresent) return nil;
  if ((self = [super init]) != nil) infos().add(self);
  return self;
}

- (CTCarrier *)subscriberCellularProvider {
  note(__func__);
  [self requireResponseTo:_cmd];
  return telephony().hasCarrier ? [CTCarrier new] : nil;
}

- (NSString *)currentRadioAccessTechnology {
  note(__func__);
  [self requireResponseTo:_cmd];
  return telephony().radioAccessTechnology;
}

- (NSDictionary<NSString *, CTCarrier *> *)serviceSubscriberCellularProviders {
  note(__func__);
  [self requireResponseTo:_cmd];
  return byService(telephony().hasCarrier ? [CTCarrier new] : nil,
                   [[CTCarrier alloc] initWithCountryCode:@"001" networkCode:@"01"]);
}

- (NSDictionary<NSString *, NSString *> *)serviceCurrentRadioAccessTechnology {
  note(__func__);
  [self requireResponseTo:_cmd];
  return byService(telephony().radioAccessTechnology, @"CTRadioAccessTechnologyEdge");
}

- (NSString *)dataServiceIdentifier {
  note(__func__);
  [self requireResponseTo:_cmd];
  return telephony().hasDataService ? service() : nil;
}

- (void)setSubscriberCellularProviderDidUpdateNotifier:(void (^)(CTCarrier *))notifier {
  note(__func__);
  [self requireResponseTo:_cmd];
  _subscriberCellularProviderDidUpdateNotifier = [notifier copy];
}

- (void)setServiceSubscriberCellularProvidersDidUpdateNotifier:(void (^)(NSString *))notifier {
  note(__func__);
  [self requireResponseTo:_cmd];
  _serviceSubscriberCellularProvidersDidUpdateNotifier = [notifier copy];
}

@end

namespace kx::standin {

Telephony &telephony() {
  static auto *const telephony = new Telephony;
  return *telephony;
}

void changeCarrier(NSString *mobileCountryCode, NSString *mobileNetworkCode) {
  telephony().mobileCountryCode = mobileCountryCode;
  telephony().mobileNetworkCode = mobileNetworkCode;
  std::vector<CTTelephonyNetworkInfo *> alive;
  CTCarrier *const carrier = [CTCarrier new];
  NSString *const changed = telephony().otherSubscriptions == 0 ? service() : @"1";
  @autoreleasepool {
    alive = infos().all();
  }
  std::thread([alive = std::move(alive), carrier, changed] {
    for (CTTelephonyNetworkInfo *info : alive) {
      void (^byName)(CTCarrier *) = nil;
      void (^byService)(NSString *) = nil;
      @autoreleasepool {
        byName = info.subscriberCellularProviderDidUpdateNotifier;
        byService = info.serviceSubscriberCellularProvidersDidUpdateNotifier;
      }
      // Without an autorelease pool: a library brings its own.
      if (byName != nil) byName(carrier);
      if (byService != nil) byService(changed);
    }
  }).join();
}

int telephonyObjects() {
  @autoreleasepool {
    return static_cast<int>(infos().all().size());
  }
}

}  // namespace kx::standin
