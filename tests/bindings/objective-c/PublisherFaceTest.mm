// The publisher and its parts, seen from Objective-C.

#import <KXPublisher/KXPublisherClasses.h>

#include <gtest/gtest.h>

#include "tests/platform/apple/harness/Collector.h"
#include "tests/platform/apple/harness/HostProvider.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace {

namespace standin = kx::standin;

constexpr const char *resume = "-[NSURLSessionTask resume]";

TEST(ObjectiveCPublisher, ReportsWhatAHostsProviderKnows) {
  standin::locationServices().areEnabled = false;
  kx::Collector collector;
  KXPublisher *const publisher = [KXPublisher sharedInstanceWithApiToken:@"T"
                                                                hostname:@(collector.hostname().c_str())];
  KXTestWeather *const provider = [[KXTestWeather alloc] init];
  publisher.dataProviders = [publisher.dataProviders arrayByAddingObject:provider];
  EXPECT_TRUE(kx::comesToKnow(provider, kx::weather()));
  ASSERT_TRUE(standin::runMainLoopUntil([&] { return collector.requests("message").size() == 1; }));
  const auto message = collector.requests("message").at(0)["document"].at(0);
  EXPECT_EQ(message["weather"], "fair");
  EXPECT_EQ(message["degrees"], 21.5);
  EXPECT_EQ(message["windows"], 3);
  EXPECT_EQ(message["open"], false);
  EXPECT_FALSE(message.contains("gone"));
  EXPECT_EQ(message["nested"].dump(), R"({"rain":["none"]})");
  EXPECT_EQ(message["make"], "Apple");
}

TEST(ObjectiveCPublisher, HasItsPartsAlwaysWithTheSameFaces) {
  KXPublisher *const publisher = [KXPublisher sharedInstanceWithApiToken:@"T" hostname:@"localhost:1"];
  NSArray<KXData *> *const providers = publisher.dataProviders;
  NSArray<Class> *const classes =
      @[ [KXDevice class], [KXCarrier class], [KXLocation class], [KXConnection class], [KXAsn class] ];
  ASSERT_EQ(providers.count, classes.count);
  // Each is of its class also where nobody has asked that for it yet.
  for (NSUInteger i = 0; i < classes.count; ++i) {
    EXPECT_TRUE([[providers objectAtIndex:i] isKindOfClass:[classes objectAtIndex:i]]) << i;
  }
  EXPECT_TRUE([providers objectAtIndex:0] == [KXDevice sharedInstance]);
  EXPECT_TRUE([providers objectAtIndex:1] == [KXCarrier sharedInstance]);
  EXPECT_TRUE([providers objectAtIndex:2] == [KXLocation sharedInstance]);
  EXPECT_TRUE([providers objectAtIndex:3] == [KXConnection sharedInstance]);
  EXPECT_TRUE([providers objectAtIndex:4] == [KXAsn sharedInstance]);
  EXPECT_TRUE(publisher.kxLogger == [KXLogger sharedInstanceWithApiToken:nil hostname:nil]);
  EXPECT_TRUE(publisher.kxLog == [KXLog sharedInstance]);
  EXPECT_TRUE([publisher.logTimer isValid]);
  NSTimer *const timer = publisher.logTimer;
  EXPECT_TRUE(publisher.logTimer == timer);
  standin::enterBackground();
  EXPECT_TRUE(publisher.logTimer == nil);
  KXTestWeather *const provider = [[KXTestWeather alloc] init];
  publisher.dataProviders = @[ provider, [KXAsn sharedInstance] ];
  EXPECT_TRUE([publisher.dataProviders objectAtIndex:0] == provider);
  EXPECT_TRUE([publisher.dataProviders objectAtIndex:1] == [KXAsn sharedInstance]);
}

TEST(ObjectiveCPublisher, OneOfItsOwnIsAnother) {
  KXPublisher *const shared = [KXPublisher sharedInstanceWithApiToken:@"T" hostname:@"localhost:1"];
  KXPublisher *const own = [[KXPublisher alloc] initWithApiToken:@"T" hostname:@"localhost:1"];
  own.dataProviders = @[];
  EXPECT_EQ(shared.dataProviders.count, 5u);
  EXPECT_FALSE(own.logTimer == shared.logTimer);
  EXPECT_TRUE([[own.data objectForKey:dataKeyPublisherSdkName] isEqual:kxPublisherSdkName]);
  EXPECT_TRUE([own.data objectForKey:dataKeyDeviceMake] == nil);
}

TEST(ObjectiveCPublisher, HoldsWhatItsPropertiesAreSetTo) {
  KXPublisher *const own = [[KXPublisher alloc] initWithApiToken:@"T" hostname:@"localhost:1"];
  KXLogger *const logger = [[KXLogger alloc] initWithApiToken:@"T" hostname:@"localhost:1"];
  own.kxLogger = logger;
  EXPECT_TRUE(own.kxLogger == logger);
  own.kxLogger = nil;
  EXPECT_TRUE(own.kxLogger == nil);
  [own logDataAsync:NO];  // dropped
  NSTimer *const timer = own.logTimer;
  own.logTimer = nil;
  EXPECT_TRUE(own.logTimer == nil);
  own.logTimer = timer;
  EXPECT_TRUE(own.logTimer == timer);
  own.kxLog = nil;
  EXPECT_TRUE(own.kxLog == nil);
  own.kxLog = [KXLog sharedInstance];
  EXPECT_TRUE(own.kxLog == [KXLog sharedInstance]);
}

TEST(ObjectiveCPublisher, OneOfItsOwnLogsInWithItsArguments) {
  KXPublisher *const own = [[KXPublisher alloc] initWithApiToken:@"T" hostname:@"localhost:1"];
  EXPECT_TRUE([own.kxLogger.kxNetworking.apiToken isEqual:@"T"]);
  EXPECT_TRUE([own.kxLogger.kxNetworking.hostname isEqual:@"localhost:1"]);
}

TEST(ObjectiveCPublisher, SendsOnDemand) {
  standin::locationServices().areEnabled = false;
  kx::Collector collector;
  KXPublisher *const publisher = [KXPublisher sharedInstanceWithApiToken:@"T"
                                                                hostname:@(collector.hostname().c_str())];
  KXNetworking *const networking = publisher.kxLogger.kxNetworking;
  ASSERT_TRUE(standin::runMainLoopUntil([=] {
    return networking.accessToken != nil && [[KXDevice sharedInstance].data objectForKey:dataKeyIfa] != nil;
  }));
  standin::settleQueues();
  const int sent = standin::callsOf(resume);
  [publisher logDataAsync:NO];
  EXPECT_EQ(standin::callsOf(resume), sent + 1);  // by now
  [publisher logData:nil];
  EXPECT_EQ(standin::callsOf(resume), sent + 1);
  standin::settleQueues();
  EXPECT_GE(standin::callsOf(resume), sent + 2);
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return collector.requests("message").size() >= 2; }));
}

}  // namespace
