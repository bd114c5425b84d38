// Every class of the library, seen from Objective-C.

#import <KXPublisher/KXPublisherClasses.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>

#include "KXPublisher/diagnostics/KXLog.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/providers/KXScheduler.h"
#include "KXPublisher/publisher/KXLogger.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "tests/platform/apple/harness/Collector.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

namespace standin = kx::standin;

/// What `work` raises, "NSRangeException: the reason"; empty when it raises nothing.
std::string raisedBy(const std::function<void()> &work) {
  NSException *raised = nil;
  try {
    work();
  } catch (id exception) {
    raised = exception;
  }
  if (raised == nil) return "";
  return std::string(raised.name.UTF8String) + ": " + raised.reason.UTF8String;
}

TEST(ObjectiveCClasses, MakeNothingWhereTheyHaveNoWayToBeMade) {
  for (NSString *const name in @[
         @"KXPublisher", @"KXLog", @"KXLogger", @"KXNetworking", @"KXScheduleInfo", @"KXDevice", @"KXCarrier",
         @"KXLocation", @"KXConnection", @"KXAsn"
       ]) {
    NSObject *const made = [NSClassFromString(name) alloc];
    EXPECT_TRUE([made init] == nil) << name.UTF8String;
  }
}

TEST(ObjectiveCLog, IsTheLibrarysOwn) {
  KXLog *const log = [KXLog sharedInstanceWithLogLevel:KXLogLevelDebug];
  EXPECT_TRUE(log == [KXLog sharedInstance]);
  EXPECT_EQ(log.logLevel, KXLogLevelDebug);
  EXPECT_EQ(kx::KXLog::sharedInstance()->logLevel(), 4);
  log.logLevel = KXLogLevelWarn;
  EXPECT_EQ(kx::KXLog::sharedInstance()->logLevel(), 2);
}

TEST(ObjectiveCLog, PrintsWhatPassesItsLevel) {
  ::testing::internal::CaptureStderr();
  [[KXLog sharedInstance] log:KXLogLevelWarn message:@"too much"];
  [[KXLog sharedInstance] log:KXLogLevelError message:@"a message"];
  KXLogError(@"%@ %d", @"filled", 7);
  const std::string printed = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(printed, HasSubstr("[KX Error] a message\n"));
  EXPECT_THAT(printed, EndsWith("[KX Error] filled 7\n"));
  EXPECT_EQ(printed.find("too much"), std::string::npos);
}

TEST(ObjectiveCLog, RaisesForALevelWithoutAName) {
  EXPECT_THAT(raisedBy([] { [[KXLog sharedInstance] log:static_cast<KXLogLevel>(-1) message:@""]; }),
              HasSubstr("NSRangeException: "));
}

/// Called by timers.
}  // namespace

@interface KXTestTarget : NSObject {
 @public
  std::atomic<int> calls;
  NSTimer *argument;
}
- (void)tick:(NSTimer *)timer;
- (void)tock:(NSTimer *)timer;
@end

@implementation KXTestTarget
- (void)tick:(NSTimer *)timer {
  EXPECT_TRUE([NSThread isMainThread]);
  argument = timer;
  ++calls;
}
- (void)tock:(NSTimer *)timer {
  calls += 100;
}
@end

namespace {

TEST(ObjectiveCScheduler, CallsTheHostsTargetWithTheTimer) {
  KXScheduler *const scheduler = [KXScheduler sharedInstance];
  EXPECT_TRUE(scheduler == [KXScheduler sharedInstance]);
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:0.01];
  EXPECT_TRUE(standin::runMainLoopUntil([target] { return target->calls >= 2; }));
  KXScheduleInfo *const info = [scheduler scheduleInfoForTarget:target selector:@selector(tick:)];
  EXPECT_TRUE(target->argument == info.timer);
  EXPECT_TRUE(info.target == target);
  EXPECT_TRUE(sel_isEqual(info.selector, @selector(tick:)));
  EXPECT_EQ(info.timeInterval, 0.01);
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tock:)] == nil);
  [scheduler removeTimerForTarget:target selector:@selector(tick:)];
}

TEST(ObjectiveCScheduler, ARecordHasOneFaceAsLongAsItIsHeld) {
  KXScheduler *const scheduler = [KXScheduler sharedInstance];
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  [scheduler setTimeInterval:100 forTarget:target selector:@selector(tick:)];
  KXScheduleInfo *const info = [scheduler scheduleInfoForTarget:target selector:@selector(tick:)];
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == info);
  [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:100];
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == info);
  [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:200];
  EXPECT_FALSE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == info);
  [scheduler removeTimerForTarget:target selector:@selector(tick:)];
}

TEST(ObjectiveCScheduler, PausesResumesAndRemoves) {
  KXScheduler *const scheduler = [[KXScheduler alloc] init];
  EXPECT_FALSE(scheduler == [KXScheduler sharedInstance]);
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:0.01];
  [scheduler pauseTimerForTarget:target selector:@selector(tick:)];
  standin::settleMainLoop();
  KXScheduleInfo *const info = [scheduler scheduleInfoForTarget:target selector:@selector(tick:)];
  EXPECT_FALSE([info.timer isValid]);
  target->calls = 0;
  [scheduler resumeTimerForTarget:target selector:@selector(tick:)];
  EXPECT_TRUE(standin::runMainLoopUntil([target] { return target->calls > 0; }));
  [scheduler removeTimerForTarget:target selector:@selector(tick:)];
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == nil);
}

TEST(ObjectiveCScheduler, ARemovedTargetIsLetGo) {
  __weak KXTestTarget *weak = nil;
  KXScheduler *const scheduler = [KXScheduler sharedInstance];
  @autoreleasepool {
    KXTestTarget *const target = [[KXTestTarget alloc] init];
    weak = target;
    [scheduler scheduleTimerForTarget:target selector:@selector(tick:) withTimeInverval:100];
  }
  EXPECT_TRUE(weak != nil);
  @autoreleasepool {
    [scheduler removeTimerForTarget:weak selector:@selector(tick:)];
  }
  standin::settleMainLoop();
  EXPECT_TRUE(weak == nil);
}

TEST(ObjectiveCScheduler, AHostsRecordIsKeptAndResumed) {
  KXScheduler *const scheduler = [KXScheduler sharedInstance];
  KXTestTarget *const target = [[KXTestTarget alloc] init];
  NSTimer *const timer = [NSTimer timerWithTimeInterval:100
                                                 target:target
                                               selector:@selector(tick:)
                                               userInfo:nil
                                                repeats:YES];
  KXScheduleInfo *const info = [[KXScheduleInfo alloc] initWithTimer:timer
                                                           forTarget:target
                                                            selector:@selector(tick:)
                                                    withTimeInterval:0.01];
  [scheduler setScheduleInfo:info forTarget:target selector:@selector(tick:)];
  EXPECT_TRUE([scheduler scheduleInfoForTarget:target selector:@selector(tick:)] == info);
  EXPECT_TRUE(info.timer == timer);
  [scheduler pauseTimerForTarget:target selector:@selector(tick:)];
  EXPECT_FALSE([timer isValid]);
  info.selector = @selector(tock:);
  info.timeInterval = 0.02;
  EXPECT_TRUE(info.target == target);
  [scheduler resumeTimerForTarget:target selector:@selector(tick:)];
  EXPECT_TRUE(standin::runMainLoopUntil([target] { return target->calls >= 100; }));
  // Resumed was what the record names by now.
  [scheduler removeTimerForTarget:target selector:@selector(tick:)];
  [scheduler removeTimerForTarget:target selector:@selector(tock:)];
}

TEST(ObjectiveCScheduler, KnowsAPairByItsDescriptions) {
  NSString *const key = [KXScheduler keyForTarget:@"me" selector:@selector(tick:)];
  EXPECT_STREQ(key.UTF8String, "t:me,s:tick:");
  EXPECT_TRUE([KXScheduler keyForTarget:nil selector:@selector(tick:)] == nil);
  EXPECT_TRUE([KXScheduler keyForTarget:@"me" selector:nullptr] == nil);
  KXDevice *const device = [KXDevice sharedInstance];
  EXPECT_EQ(
      std::string([KXScheduler keyForTarget:device selector:@selector(updateDataWithTimer:)].UTF8String),
      "t:" + kx::KXDevice::sharedInstance()->description() + ",s:updateDataWithTimer:");
}

TEST(ObjectiveCNetworking, BuildsWhatTheTransportBuilds) {
  EXPECT_STREQ([KXNetworking urlForApiPath:@"x" hostname:@"svc:8443"].absoluteString.UTF8String,
               "https://svc:8443/x");
  EXPECT_TRUE([KXNetworking urlForApiPath:nil hostname:@"svc"] == nil);
  NSArray *const values = @[ @"a/b", @1, @2.5, @YES, @{} ];
  EXPECT_STREQ([KXNetworking jsonForObject:values].UTF8String, "[\"a/b\",1,2.5,true,{}]");
  EXPECT_TRUE([KXNetworking jsonForObject:@"no container"] == nil);
  EXPECT_TRUE([KXNetworking jsonForObject:nil] == nil);
  EXPECT_TRUE([KXNetworking jsonForObject:[NSDate date]] == nil);
  EXPECT_EQ([KXNetworking getIPAddresses].count, kx::KXNetworking::getIPAddresses().size());
}

TEST(ObjectiveCNetworking, HandsTheHostsTaskItsAnswer) {
  kx::Collector collector;
  NSURLSession *const session =
      [NSURLSession sessionWithConfiguration:[NSURLSessionConfiguration defaultSessionConfiguration]];
  std::atomic<long> status{0};
  std::atomic<long> *const seen = &status;
  KXUploadCompletionHandler const handler = ^(NSData *, NSURLResponse *response, NSError *) {
    *seen = [static_cast<NSHTTPURLResponse *>(response) statusCode];
  };
  NSString *const hostname = @(collector.hostname().c_str());
  EXPECT_TRUE([KXNetworking apiUploadTaskForPath:@"/x"
                                        hostname:hostname
                                          params:nil
                                         session:session
                               completionHandler:handler] == nil);
  NSURLSessionUploadTask *const task = [KXNetworking apiUploadTaskForPath:@"/nowhere"
                                                                 hostname:hostname
                                                                   params:@{
                                                                     @"a" : @1
                                                                   }
                                                                  session:session
                                                        completionHandler:handler];
  ASSERT_TRUE(task != nil);
  [task resume];
  [session finishTasksAndInvalidate];
  EXPECT_TRUE(standin::runMainLoopUntil([&status] { return status != 0; }));
  EXPECT_EQ(status, 404);
}

TEST(ObjectiveCNetworking, AMessageTaskNeedsItsDataAndItsToken) {
  NSURLSession *const session =
      [NSURLSession sessionWithConfiguration:[NSURLSessionConfiguration defaultSessionConfiguration]];
  KXUploadCompletionHandler const handler = ^(NSData *, NSURLResponse *, NSError *) {
  };
  NSData *const data = [@"[]" dataUsingEncoding:NSUTF8StringEncoding];
  const auto task = [&](NSData *body, NSString *token, NSURLSession *on) {
    return [KXNetworking feedUploadTaskForData:body
                                      hostname:@"svc"
                                   accessToken:token
                                       session:on
                             completionHandler:handler];
  };
  EXPECT_TRUE(task(data, @"token", session) != nil);
  EXPECT_TRUE(task(nil, @"token", session) == nil);
  EXPECT_TRUE(task(data, nil, session) == nil);
  EXPECT_TRUE(task(data, @"token", nil) == nil);
  [session finishTasksAndInvalidate];
}

TEST(ObjectiveCNetworking, LogsInAndSends) {
  kx::Collector collector;
  NSString *const hostname = @(collector.hostname().c_str());
  KXNetworking *const networking = [KXNetworking sharedInstanceWithApiToken:@"T" hostname:hostname];
  EXPECT_TRUE([KXNetworking sharedInstanceWithApiToken:@"other" hostname:nil] == networking);
  EXPECT_STREQ(networking.apiToken.UTF8String, "T");
  EXPECT_STREQ(networking.hostname.UTF8String, collector.hostname().c_str());
  EXPECT_TRUE(networking.accessTokenRequestTimer == nil);
  ASSERT_TRUE(standin::runMainLoopUntil([=] { return networking.accessToken != nil; }));
  EXPECT_FALSE(networking.accessTokenWaitingResponse);
  EXPECT_GT(networking.accessTokenLastUpdated, 0);
  EXPECT_EQ(networking.lastAccessTokenRequestTimeInterval, 0);
  std::atomic<bool> arrived{false};
  std::atomic<bool> *const token = &arrived;
  [networking getAccessTokenWithCompletionHandler:^(NSString *accessToken) {
    *token = accessToken != nil;
  }];
  EXPECT_TRUE(standin::runMainLoopUntil([&arrived] { return arrived.load(); }));
  KXLogger *const logger = [KXLogger sharedInstanceWithApiToken:nil hostname:nil];
  EXPECT_TRUE(logger == [KXLogger sharedInstanceWithApiToken:@"other" hostname:nil]);
  EXPECT_TRUE(logger.kxNetworking == networking);
  NSString *const compressible = @"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";
  [logger logData:@{@"ifa" : compressible, @"fair" : @YES} async:NO];
  ASSERT_TRUE(standin::runMainLoopUntil([&] { return collector.requests("message").size() == 1; }));
  const auto message = collector.requests("message").at(0)["document"].at(0);
  EXPECT_EQ(message["fair"], true);
  EXPECT_EQ(message["ifa"], compressible.UTF8String);
}

TEST(ObjectiveCNetworking, BacksOff) {
  KXNetworking *const networking = [[KXNetworking alloc] initWithApiToken:nil hostname:nil];
  [networking updateLastAccessTokenRequestTimeInterval];
  EXPECT_EQ(networking.lastAccessTokenRequestTimeInterval, 300);
  [networking updateAccessToken:nil];
}

TEST(ObjectiveCLogger, DropsMessagesWithoutATransport) {
  KXLogger *const logger = [[KXLogger alloc] initWithApiToken:nil hostname:nil];
  KXNetworking *const another = [[KXNetworking alloc] initWithApiToken:@"A" hostname:nil];
  logger.kxNetworking = another;
  EXPECT_TRUE(logger.kxNetworking == another);
  logger.kxNetworking = nil;
  EXPECT_TRUE(logger.kxNetworking == nil);
  EXPECT_EQ(raisedBy([logger] { [logger logData:@{} async:NO]; }), "");
}

TEST(ObjectiveCGzipUtility, CompressesData) {
  NSMutableData *const zeros = [NSMutableData dataWithLength:1000];
  NSData *const compressed = [KXGzipUtility gzipData:zeros];
  ASSERT_GT(compressed.length, 18u);
  EXPECT_LT(compressed.length, 100u);
  EXPECT_EQ(static_cast<const unsigned char *>(compressed.bytes)[0], 0x1f);
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE([KXGzipUtility gzipData:nil] == nil);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("Can't compress an empty or null NSData"));
}

}  // namespace
