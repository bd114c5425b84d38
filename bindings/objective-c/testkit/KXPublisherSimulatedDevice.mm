#import <KXPublisher/KXPublisher.h>
#import <KXPublisher/testkit/KXPublisherSimulatedDevice.h>

#include <exception>
#include <optional>
#include <string>

#include "KXPublisher/platform/simulated/SimulatedPlatform.h"

// The simulated device as tests in Objective-C and Swift see it.

namespace {

NSString *_Nullable stringOf(const std::optional<std::string> &text) {
  return text ? [NSString stringWithUTF8String:text->c_str()] : nil;
}

std::optional<std::string> textOf(NSString *_Nullable string) {
  const char *const text = string.UTF8String;
  return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

[[noreturn]] void raise(const char *reason) {
  [NSException raise:NSInternalInconsistencyException format:@"KXPublisherSimulatedDevice: %s", reason];
  __builtin_unreachable();
}

/// Runs what may throw in C++, for callers that know nothing of that.
template <class Work>
void raising(Work &&work) {
  std::string reason;
  try {
    return work();
  } catch (const std::exception &exception) {
    reason = exception.what();
  }
  raise(reason.c_str());
}

kx::NetworkReachabilityFlags flagsOf(KXPublisherSimulatedConnection connection) {
  switch (connection) {
    case KXPublisherSimulatedConnectionNone:
      return 0;
    case KXPublisherSimulatedConnectionWifi:
      return kx::networkReachabilityFlagsReachable;
    case KXPublisherSimulatedConnectionCellular:
      return kx::networkReachabilityFlagsReachable | kx::networkReachabilityFlagsIsWWAN;
  }
  return 0;
}

}  // namespace

@implementation KXPublisherSimulatedDevice {
  kx::SimulatedPlatform *_platform;  // the process's, which is never destroyed
}

+ (KXPublisherSimulatedDevice *)install {
  static KXPublisherSimulatedDevice *device;
  if (device != nil) return device;
  if (NSClassFromString(@"KXPublisher") != [KXPublisher class]) {
    raise("the process has a second copy of the library, which would use the real device");
  }
  raising([] {
    device = [[KXPublisherSimulatedDevice alloc] initWithPlatform:&kx::SimulatedPlatform::install()];
  });
  return device;
}

- (instancetype)initWithPlatform:(kx::SimulatedPlatform *)platform {
  self = [super init];
  if (self != nil) _platform = platform;
  return self;
}

- (void)advance:(NSTimeInterval)seconds {
  raising([&] { _platform->advance(seconds); });
}

- (void)enterBackground {
  raising([&] { _platform->application->enterBackground(); });
}

- (void)returnToForeground {
  raising([&] { _platform->application->enterForeground(); });
}

// ---- What the device tells

- (NSString *)advertisingIdentifier {
  return stringOf(_platform->advertisingService->identifier);
}

- (void)setAdvertisingIdentifier:(NSString *)identifier {
  _platform->advertisingService->identifier = textOf(identifier);
}

- (BOOL)isAdvertisingTrackingEnabled {
  return _platform->advertisingService->trackingEnabled;
}

- (void)setAdvertisingTrackingEnabled:(BOOL)enabled {
  _platform->advertisingService->trackingEnabled = enabled;
}

- (NSString *)model {
  return stringOf(_platform->device->modelText);
}

- (void)setModel:(NSString *)model {
  _platform->device->modelText = textOf(model);
}

- (NSString *)systemVersion {
  return stringOf(_platform->device->systemVersionText);
}

- (void)setSystemVersion:(NSString *)systemVersion {
  _platform->device->systemVersionText = textOf(systemVersion);
}

- (NSArray<NSString *> *)preferredLanguages {
  NSMutableArray<NSString *> *languages = [NSMutableArray array];
  for (const std::string &language : _platform->localeService.languages) {
    [languages addObject:(NSString *)stringOf(language)];
  }
  return languages;
}

- (void)setPreferredLanguages:(NSArray<NSString *> *)preferredLanguages {
  std::vector<std::string> languages;
  for (NSString *language in preferredLanguages) languages.push_back(textOf(language).value_or(""));
  _platform->localeService.languages = languages;
}

- (NSString *)bundleIdentifier {
  return stringOf(_platform->bundle->identifier);
}

- (void)setBundleIdentifier:(NSString *)bundleIdentifier {
  _platform->bundle->identifier = textOf(bundleIdentifier);
}

// ---- What changes around it

- (KXPublisherSimulatedConnection)connection {
  const kx::NetworkReachabilityFlags flags = _platform->reachability.flags.value_or(0);
  if ((flags & kx::networkReachabilityFlagsReachable) == 0) return KXPublisherSimulatedConnectionNone;
  return (flags & kx::networkReachabilityFlagsIsWWAN) != 0 ? KXPublisherSimulatedConnectionCellular
                                                           : KXPublisherSimulatedConnectionWifi;
}

- (void)setConnection:(KXPublisherSimulatedConnection)connection {
  _platform->reachability.changeFlags(flagsOf(connection));
}

- (void)insertSIMWithCountryCode:(NSString *)countryCode networkCode:(NSString *)networkCode {
  _platform->telephonyService.changeCarrier(kx::SimulatedCarrier{textOf(countryCode), textOf(networkCode)});
}

- (void)removeSIM {
  _platform->telephonyService.changeCarrier(std::nullopt);
}

- (NSString *)radioAccessTechnology {
  return stringOf(_platform->telephonyService.radioAccessTechnology);
}

- (void)setRadioAccessTechnology:(NSString *)radioAccessTechnology {
  _platform->telephonyService.radioAccessTechnology = textOf(radioAccessTechnology);
}

- (BOOL)isLocationAuthorized {
  return _platform->locationService.status == kx::AuthorizationStatus::authorizedWhenInUse;
}

- (void)setLocationAuthorized:(BOOL)authorized {
  _platform->locationService.changeAuthorization(authorized ? kx::AuthorizationStatus::authorizedWhenInUse
                                                            : kx::AuthorizationStatus::denied);
}

- (void)moveToLatitude:(double)latitude
             longitude:(double)longitude
    horizontalAccuracy:(double)horizontalAccuracy {
  kx::Location location;
  location.coordinate = {latitude, longitude};
  location.horizontalAccuracy = horizontalAccuracy;
  _platform->locationService.moveTo(location);
}

- (void)setPlaceInCountry:(NSString *)country
                    state:(NSString *)state
                     city:(NSString *)city
               postalCode:(NSString *)postalCode
           secondsFromGMT:(NSInteger)secondsFromGMT {
  _platform->locationService.placemarks.clear();
  if (country == nil) return;
  _platform->locationService.placemarks.push_back(
      {textOf(country), textOf(state), textOf(city), textOf(postalCode), secondsFromGMT});
}

// ---- What reaches the collection service

- (NSArray<NSDictionary<NSString *, id> *> *)messages {
  NSMutableArray<NSDictionary<NSString *, id> *> *messages = [NSMutableArray array];
  for (const kx::SimulatedRequest &request : _platform->service.messages()) {
    const std::string text = request.text().value_or("");
    NSData *const data = [NSData dataWithBytes:text.data() length:text.size()];
    // A post is an array of messages.
    const id posted = [NSJSONSerialization JSONObjectWithData:data options:0 error:NULL];
    if ([posted isKindOfClass:[NSArray class]]) [messages addObjectsFromArray:posted];
  }
  return messages;
}

- (NSInteger)loginCount {
  return static_cast<NSInteger>(_platform->service.logins().size());
}

- (void)forgetMessages {
  _platform->service.requests.clear();
}

- (void)answerNextLoginWithStatusCode:(NSInteger)statusCode {
  _platform->service.script(kx::SimulatedCollectionService::loginPath,
                            {kx::SimulatedReply::status(static_cast<long>(statusCode))});
}

- (void)answerNextMessageWithStatusCode:(NSInteger)statusCode {
  _platform->service.script(kx::SimulatedCollectionService::messagePath,
                            {kx::SimulatedReply::status(static_cast<long>(statusCode))});
}

- (void)failNextMessage {
  _platform->service.script(kx::SimulatedCollectionService::messagePath,
                            {kx::SimulatedReply::failure("The network connection was lost.")});
}

- (void)revokeAccessTokens {
  _platform->service.revokeTokens();
}

// ---- What the library prints

- (NSArray<NSString *> *)logLines {
  NSMutableArray<NSString *> *lines = [NSMutableArray array];
  for (const std::string &line : _platform->consoleService.lines) {
    NSString *const text = stringOf(line);
    if (text != nil) [lines addObject:text];
  }
  return lines;
}

@end
