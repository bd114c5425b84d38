#import <KXPublisher/KXPublisher.h>
#import <KXPublisher/testkit/KXPublisherSimulatedDevice.h>

NSUInteger messagesInTenMinutes(void);
NSUInteger messagesInTenMinutes(void) {
  KXPublisherSimulatedDevice *device = [KXPublisherSimulatedDevice install];
  [KXPublisher sharedInstanceWithApiToken:@"token" hostname:@"collect.example.com"];
  [device advance:600];
  return device.messages.count;
}
