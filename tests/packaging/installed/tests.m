#import <KXPublisher/KXPublisher.h>
#import <KXPublisher/platform/simulated/apple/KXPublisherSimulatedDevice.h>

NSUInteger messagesInTenMinutes(void);
NSUInteger messagesInTenMinutes(void) {
  KXPublisherSimulatedDevice *device = [KXPublisherSimulatedDevice install];
  [KXPublisher sharedInstanceWithApiToken:@"token" hostname:@"collect.example.com"];
  [device advance:600];
  return device.messages.count;
}
