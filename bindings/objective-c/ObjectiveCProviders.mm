#include "KXPublisher/providers/KXAsn.h"
#include "KXPublisher/providers/KXCarrier.h"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/providers/KXLocation.h"
#include "bindings/objective-c/ObjectiveCData.h"
#include "bindings/objective-c/ObjectiveCFace.h"
#include "platform/apple/AppleDeprecated.h"
#include "platform/apple/AppleDevice.h"
#include "platform/apple/AppleGeocoder.h"
#include "platform/apple/AppleLocation.h"
#include "platform/apple/AppleReachability.h"
#include "platform/apple/AppleTelephony.h"
#include "platform/apple/AppleText.h"
#include "platform/apple/AppleValue.h"

// The faces of the library's own five providers. What every provider has is the base's.

namespace {

NSString *stringOf(const std::optional<std::string> &text) {
  return text ? kx::stringOf(*text) : nil;
}

}  // namespace

@implementation KXDevice

// The compiler does not let a host call it; who gets here by the runtime gets nothing.
- (instancetype)init {
  return nil;
}

+ (KXDevice *)sharedInstance {
  static KXDevice *const sharedInstance = kx::faceOfInstance<KXDevice>(kx::KXDevice::sharedInstance());
  return sharedInstance;
}

+ (BOOL)needsMonitoring {
  return NO;
}

- (kx::KXDevice *)kxDevice {
  return static_cast<kx::KXDevice *>([self kxPublisherProvider].get());
}

- (UIDevice *)currentDevice {
  return kx::systemDeviceOf([self kxDevice]->currentDevice());
}

- (void)setCurrentDevice:(UIDevice *)currentDevice {
  [self kxDevice]->setCurrentDevice(kx::deviceOf(currentDevice));
}

- (NSString *)deviceType {
  return stringOf([self kxDevice]->deviceType());
}

- (NSString *)deviceName {
  return stringOf([self kxDevice]->deviceName());
}

- (NSString *)userAgent {
  return stringOf([self kxDevice]->userAgent());
}

- (NSString *)ifa {
  return stringOf([self kxDevice]->ifa());
}

- (NSNumber *)dnt {
  const auto dnt = [self kxDevice]->dnt();
  return dnt ? [NSNumber numberWithLongLong:*dnt] : nil;
}

- (NSArray<NSString *> *)languages {
  const auto languages = [self kxDevice]->languages();
  if (!languages) return nil;
  NSMutableArray<NSString *> *const array = [NSMutableArray array];
  for (const kx::Value &language : *languages) {
    NSString *const text = kx::stringOf(*language.text());
    if (text != nil) [array addObject:text];
  }
  return array;
}

@end

@implementation KXCarrier

- (instancetype)init {
  return nil;
}

+ (KXCarrier *)sharedInstance {
  static KXCarrier *const sharedInstance = kx::faceOfInstance<KXCarrier>(kx::KXCarrier::sharedInstance());
  return sharedInstance;
}

+ (BOOL)needsMonitoring {
  return NO;
}

- (kx::KXCarrier *)kxCarrier {
  return static_cast<kx::KXCarrier *>([self kxPublisherProvider].get());
}

- (void)initCarrierInfo {
  [self kxCarrier]->initCarrierInfo();
}

- (CTTelephonyNetworkInfo *)networkInfo {
  return kx::systemNetworkInfoOf([self kxCarrier]->networkInfo());
}

// To name what is deprecated is no new use of it: it is what the library holds.
KX_DEPRECATED_BEGIN

- (CTCarrier *)carrierInfo {
  return kx::systemCarrierOf([self kxCarrier]->carrierInfo());
}

KX_DEPRECATED_END

@end

@implementation KXLocation

- (instancetype)init {
  return nil;
}

+ (KXLocation *)sharedInstance {
  static KXLocation *const sharedInstance = kx::faceOfInstance<KXLocation>(kx::KXLocation::sharedInstance());
  return sharedInstance;
}

+ (BOOL)needsMonitoring {
  return NO;
}

- (kx::KXLocation *)kxLocation {
  return static_cast<kx::KXLocation *>([self kxPublisherProvider].get());
}

- (CLLocationManager *)locationManager {
  return kx::systemManagerOf([self kxLocation]->locationManager());
}

KX_DEPRECATED_BEGIN

- (CLGeocoder *)geocoder {
  return kx::systemGeocoderOf([self kxLocation]->geocoder());
}

KX_DEPRECATED_END

// Whose report it is does not count, and neither does what is in it; without a manager there is nothing to
// do.

- (void)locationManager:(CLLocationManager *)__attribute__((unused))manager
    didChangeAuthorizationStatus:(CLAuthorizationStatus)status {
  if (const auto own = [self kxLocation]->locationManager()) {
    [self kxLocation]->locationManager(*own, static_cast<kx::AuthorizationStatus>(status));
  }
}

- (void)locationManager:(CLLocationManager *)__attribute__((unused))manager
     didUpdateLocations:(NSArray<CLLocation *> *)__attribute__((unused))locations {
  if (const auto own = [self kxLocation]->locationManager()) {
    [self kxLocation]->locationManager(*own, std::vector<kx::Location>());
  }
}

- (void)locationManagerDidPauseLocationUpdates:(CLLocationManager *)__attribute__((unused))manager {
  if (const auto own = [self kxLocation]->locationManager()) {
    [self kxLocation]->locationManagerDidPauseLocationUpdates(*own);
  }
}

- (void)locationManagerDidResumeLocationUpdates:(CLLocationManager *)__attribute__((unused))manager {
  if (const auto own = [self kxLocation]->locationManager()) {
    [self kxLocation]->locationManagerDidResumeLocationUpdates(*own);
  }
}

@end

@implementation KXConnection

- (instancetype)init {
  return nil;
}

+ (KXConnection *)sharedInstance {
  static KXConnection *const sharedInstance =
      kx::faceOfInstance<KXConnection>(kx::KXConnection::sharedInstance());
  return sharedInstance;
}

+ (BOOL)needsMonitoring {
  return NO;
}

- (kx::KXConnection *)kxConnection {
  return static_cast<kx::KXConnection *>([self kxPublisherProvider].get());
}

- (KXNetworkStatus)currentReachabilityStatus {
  return static_cast<KXNetworkStatus>([self kxConnection]->currentReachabilityStatus());
}

- (KXNetworkStatus)networkStatusForFlags:(uint32_t)flags {
  return static_cast<KXNetworkStatus>(kx::KXConnection::networkStatusForFlags(flags));
}

- (void)startNotifier {
  [self kxConnection]->startNotifier();
}

- (void)stopNotifier {
  [self kxConnection]->stopNotifier();
}

- (void)reachabilityDidChange:(NSNotification *)__attribute__((unused))notification {
  [self kxConnection]->reachabilityDidChange(nullptr);
}

- (NSValue *)reachability {
  const auto handle = [self kxConnection]->reachability();
  return handle ? [NSValue valueWithPointer:kx::systemHandleOf(*handle)] : nil;
}

@end

@implementation KXAsn

- (instancetype)init {
  return nil;
}

+ (KXAsn *)sharedInstance {
  static KXAsn *const sharedInstance = kx::faceOfInstance<KXAsn>(kx::KXAsn::sharedInstance());
  return sharedInstance;
}

+ (BOOL)needsMonitoring {
  return NO;
}

@end
