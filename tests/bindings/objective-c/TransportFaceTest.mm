// What goes out, seen from Objective-C: the transport client, the logger in front of it, and compression.

#import <KXPublisher/KXPublisherClasses.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <string>

#include "KXPublisher/transport/KXGzipUtility.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "tests/platform/apple/harness/Collector.h"
#include "tests/platform/apple/harness/Raised.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace {

using ::testing::HasSubstr;

namespace standin = kx::standin;

constexpr const char *resume = "-[NSURLSessionTask resume]";

// Of a shorter body more would be left by compression than is given room for.
NSString *const compressible = @"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";

TEST(ObjectiveCNetworking, BuildsWhatTheTransportBuilds) {
  EXPECT_STREQ([KXNetworking urlForApiPath:@"x" hostname:@"svc:8443"].absoluteString.UTF8String,
               "https://svc:8443/x");
  EXPECT_TRUE([KXNetworking urlForApiPath:nil hostname:@"svc"] == nil);
  NSArray *const values = @[ @"a/b", @1, @2.5, @YES, @{} ];
  EXPECT_STREQ([KXNetworking jsonForObject:values].UTF8String, "[\"a/b\",1,2.5,true,{}]");
  EXPECT_TRUE([KXNetworking jsonForObject:@"no container"] == nil);
  EXPECT_TRUE([KXNetworking jsonForObject:nil] == nil);
  EXPECT_TRUE([KXNetworking jsonForObject:[NSDate date]] == nil);
  standin::interfaces().entries = {{"en0", AF_INET, {192, 168, 1, 2}}, {"pdp_ip0", AF_INET, {10, 0, 0, 3}}};
  EXPECT_TRUE([[KXNetworking getIPAddresses] isEqual:(@[ @"192.168.1.2", @"10.0.0.3" ])]);
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
  NSURLSessionUploadTask *const task = [KXNetworking apiUploadTaskForPath:kxPublisherApiPathGetToken
                                                                 hostname:hostname
                                                                   params:@{@"ifa" : compressible}
                                                                  session:session
                                                        completionHandler:handler];
  ASSERT_TRUE(task != nil);
  [task resume];
  [session finishTasksAndInvalidate];
  EXPECT_TRUE(standin::runMainLoopUntil([&status] { return status != 0; }));
  EXPECT_EQ(status, 400);  // it is no login
  ASSERT_TRUE(standin::runMainLoopUntil([&] { return collector.requests("login").size() == 1; }))
      << collector.transcript();
  EXPECT_EQ(collector.requests("login")[0]["document"]["ifa"], compressible.UTF8String);
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

/// With what came of it taken notice of.
bool hasLoggedIn(KXNetworking *networking) {
  return standin::runMainLoopUntil(
      [=] { return networking.accessToken != nil && !networking.accessTokenWaitingResponse; });
}

TEST(ObjectiveCNetworking, AMessageTaskCarriesItsDataAndItsToken) {
  kx::Collector collector;
  NSString *const hostname = @(collector.hostname().c_str());
  KXNetworking *const networking = [[KXNetworking alloc] initWithApiToken:@"T" hostname:hostname];
  ASSERT_TRUE(hasLoggedIn(networking));
  NSURLSession *const session =
      [NSURLSession sessionWithConfiguration:[NSURLSessionConfiguration defaultSessionConfiguration]];
  std::atomic<long> status{0};
  std::atomic<long> *const seen = &status;
  NSString *const body = [NSString stringWithFormat:@"[{\"ifa\":\"%@\"}]", compressible];
  NSURLSessionUploadTask *const task =
      [KXNetworking feedUploadTaskForData:[body dataUsingEncoding:NSUTF8StringEncoding]
                                 hostname:hostname
                              accessToken:networking.accessToken
                                  session:session
                        completionHandler:^(NSData *, NSURLResponse *response, NSError *) {
                          *seen = [static_cast<NSHTTPURLResponse *>(response) statusCode];
                        }];
  [task resume];
  [session finishTasksAndInvalidate];
  EXPECT_TRUE(standin::runMainLoopUntil([&status] { return status != 0; }));
  EXPECT_EQ(status, 400);  // it comes from who has logged in, but is no report
  ASSERT_TRUE(standin::runMainLoopUntil([&] { return collector.requests("message").size() == 1; }))
      << collector.transcript();
  EXPECT_EQ(collector.requests("message")[0]["document"][0]["ifa"], compressible.UTF8String);
}

TEST(ObjectiveCNetworking, WaitsForTheAnswerToItsLogin) {
  kx::Collector collector;
  standin::holdIn(resume);
  KXNetworking *const networking = [[KXNetworking alloc] initWithApiToken:@"T"
                                                                 hostname:@(collector.hostname().c_str())];
  EXPECT_TRUE(standin::runMainLoopUntil([=] { return networking.accessTokenWaitingResponse; }));
  EXPECT_TRUE(networking.accessToken == nil);
  standin::letGo(resume);
  EXPECT_TRUE(hasLoggedIn(networking));
}

TEST(ObjectiveCNetworking, ShowsTheTimerOfItsNextLogin) {
  standin::network().error = [NSError errorWithDomain:@"NSURLErrorDomain" code:-1009 userInfo:nil];
  KXNetworking *const networking = [[KXNetworking alloc] initWithApiToken:@"T" hostname:@"localhost:1"];
  EXPECT_TRUE(standin::runMainLoopUntil([=] { return networking.accessTokenRequestTimer != nil; }));
  EXPECT_TRUE([networking.accessTokenRequestTimer isValid]);
  EXPECT_EQ(networking.lastAccessTokenRequestTimeInterval, 300);
}

TEST(ObjectiveCNetworking, LogsInAndSends) {
  kx::Collector collector;
  NSString *const hostname = @(collector.hostname().c_str());
  KXNetworking *const networking = [KXNetworking sharedInstanceWithApiToken:@"T" hostname:hostname];
  EXPECT_TRUE([KXNetworking sharedInstanceWithApiToken:@"other" hostname:nil] == networking);
  EXPECT_STREQ(networking.apiToken.UTF8String, "T");
  EXPECT_STREQ(networking.hostname.UTF8String, collector.hostname().c_str());
  EXPECT_TRUE(networking.accessTokenRequestTimer == nil);
  ASSERT_TRUE(hasLoggedIn(networking));
  EXPECT_GT(networking.accessTokenLastUpdated, 0);
  EXPECT_EQ(networking.lastAccessTokenRequestTimeInterval, 0);
  std::atomic<bool> arrived{false};
  std::atomic<bool> *const token = &arrived;
  [networking getAccessTokenWithCompletionHandler:^(NSString *accessToken) {
    *token = accessToken != nil;
  }];
  EXPECT_TRUE(standin::runMainLoopUntil([&arrived] { return arrived.load(); }));
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return collector.requests("login").size() == 2; }));
  [networking updateAccessToken:nil];
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return collector.requests("login").size() == 3; }));
  EXPECT_TRUE(hasLoggedIn(networking));
  KXLogger *const logger = [KXLogger sharedInstanceWithApiToken:nil hostname:nil];
  EXPECT_TRUE(logger == [KXLogger sharedInstanceWithApiToken:@"other" hostname:nil]);
  EXPECT_TRUE(logger.kxNetworking == networking);
  const int sent = standin::callsOf(resume);
  [logger logData:@{@"ifa" : compressible, @"fair" : @YES} async:NO];
  EXPECT_GT(standin::callsOf(resume), sent);  // by now
  ASSERT_TRUE(standin::runMainLoopUntil([&] { return collector.requests("message").size() == 1; }));
  const auto message = collector.requests("message").at(0)["document"].at(0);
  EXPECT_EQ(message["fair"], true);
  EXPECT_EQ(message["ifa"], compressible.UTF8String);
  [networking sendData:@{@"ifa" : compressible}];
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return collector.requests("message").size() == 2; }));
}

TEST(ObjectiveCNetworking, HoldsWhatItsPropertiesAreSetTo) {
  KXNetworking *const networking = [[KXNetworking alloc] initWithApiToken:nil hostname:nil];
  networking.apiToken = @"T";
  EXPECT_TRUE([networking.apiToken isEqual:@"T"]);
  networking.hostname = @"host";
  EXPECT_TRUE([networking.hostname isEqual:@"host"]);
  networking.accessToken = @"A";
  EXPECT_TRUE([networking.accessToken isEqual:@"A"]);
  networking.accessToken = nil;
  EXPECT_TRUE(networking.accessToken == nil);
  networking.accessTokenLastUpdated = 5;
  EXPECT_EQ(networking.accessTokenLastUpdated, 5);
  networking.lastAccessTokenRequestTimeInterval = 1200;
  EXPECT_EQ(networking.lastAccessTokenRequestTimeInterval, 1200);
  networking.accessTokenWaitingResponse = YES;
  EXPECT_TRUE(networking.accessTokenWaitingResponse);
  networking.accessTokenWaitingResponse = NO;
  EXPECT_FALSE(networking.accessTokenWaitingResponse);
  NSTimer *const timer = [NSTimer timerWithTimeInterval:100
                                                 target:networking
                                               selector:@selector(updateAccessToken:)
                                               userInfo:nil
                                                repeats:NO];
  networking.accessTokenRequestTimer = timer;
  EXPECT_TRUE(networking.accessTokenRequestTimer == timer);
  networking.accessTokenRequestTimer = nil;
  EXPECT_TRUE(networking.accessTokenRequestTimer == nil);
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
  EXPECT_EQ(kx::raisedBy([logger] { [logger logData:@{} async:NO]; }), "");
}

TEST(ObjectiveCGzipUtility, CompressesData) {
  NSData *const compressed = [KXGzipUtility gzipData:[NSMutableData dataWithLength:1000]];
  const auto expected = kx::KXGzipUtility::gzipData(kx::Data(1000));
  ASSERT_TRUE(expected.has_value());
  EXPECT_TRUE([compressed isEqual:[NSData dataWithBytes:expected->data() length:expected->size()]]);
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE([KXGzipUtility gzipData:nil] == nil);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("Can't compress an empty or null NSData"));
}

}  // namespace
