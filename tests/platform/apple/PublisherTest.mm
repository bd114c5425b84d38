// The whole of it: a host calls the library by its Objective-C face, and messages arrive at the collection
// service.

#import <KXPublisher/KXPublisher.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>

#include "KXPublisher/diagnostics/KXLog.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "tests/platform/apple/harness/Collector.h"
#include "tests/platform/apple/harness/Facts.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr const char *resume = "-[NSURLSessionTask resume]";

class ApplePublisher : public ::testing::Test {
 protected:
  ApplePublisher() { standin::locationServices().areEnabled = false; }

  ::KXPublisher *start() {
    return [::KXPublisher sharedInstanceWithApiToken:@"T" hostname:@(collector.hostname().c_str())];
  }

  /// Until a report can be sent: the library has logged in, and knows the device.
  void startAndLogIn() {
    start();
    const auto networking = KXNetworking::sharedInstanceWithApiToken("", "");
    ASSERT_TRUE(standin::runMainLoopUntil([&] { return networking->accessToken().has_value(); }))
        << collector.transcript();
    ASSERT_TRUE(standin::runMainLoopUntil([] { return factsOf(*KXDevice::sharedInstance()).is_object(); }));
  }

  bool arrive(std::size_t count) {
    return standin::runMainLoopUntil([this, count] { return collector.requests("message").size() == count; });
  }

  json message(std::size_t index) const {
    const auto requests = collector.requests("message");
    return index < requests.size() ? json(requests[index]["document"].at(0)) : json();
  }

  Collector collector;
};

TEST_F(ApplePublisher, ReportsEverythingShortlyAfterTheStart) {
  standin::locationServices().areEnabled = true;
  standin::locationServices().location = standin::locationAt(54.5, 7.25);
  const auto earliest = static_cast<long>(NSDate.date.timeIntervalSince1970 + loggingFirstTimeDelay);
  start();
  CLPlacemark *const place =
      standin::placemark(@"DE", @"Berlin", @"Berlin", @"10115", [NSTimeZone timeZoneForSecondsFromGMT:7200]);
  ASSERT_TRUE(standin::runMainLoopUntil([&] {
    standin::answerGeocoding(@[ place ]);
    return collector.requests("message").size() == 1;
  })) << collector.transcript();

  const auto login = collector.requests("login").at(0);
  EXPECT_EQ(login["status"], 200);
  EXPECT_EQ(json(login["document"]), (json{{"header", {{"typ", "JWT"}, {"alg", "HS256"}}},
                                           {"payload",
                                            {{"aud", {collector.hostname()}},
                                             {"iss", collector.hostname()},
                                             {"sub", "T"},
                                             {"name", "iOS.com.example.KXTests"}}}}));

  const auto request = collector.requests("message").at(0);
  EXPECT_EQ(request["status"], 200);
  json report = message(0);
  EXPECT_EQ(report["eventTime"].get<long>() % 1000, 0);
  EXPECT_GE(report["eventTime"].get<long>() / 1000, earliest);
  EXPECT_TRUE(report["id"].is_string() && report["id"] != "");
  EXPECT_TRUE(report["ips"].is_array());
  EXPECT_TRUE(report["languages"].is_array() && !report["languages"].empty());
  EXPECT_TRUE(report["name"].is_string() && report["name"] != "");
  for (const char *key : {"eventTime", "id", "ips", "languages", "name"}) report.erase(key);
  EXPECT_EQ(report, (json{{"deviceCategory", "Phone"},
                          {"make", "Apple"},
                          {"model", "iPhone"},
                          {"platform", "iOS"},
                          {"osVersion", "iOS 12.4"},
                          {"userAgent", standin::webEngine().userAgent.UTF8String},
                          {"ifa", "6D92078A-8246-4BA4-AE5B-76104861E7DC"},
                          {"dnt", 0},
                          {"carrierCode", "310-410"},
                          {"radioAccessTechnology", "LTE"},
                          {"lat", 54.5},
                          {"lon", 7.25},
                          {"horizontalAccuracy", 5.0},
                          {"altitude", 35.5},
                          {"verticalAccuracy", -1.0},
                          {"country", "DE"},
                          {"state", "Berlin"},
                          {"city", "Berlin"},
                          {"zip", "10115"},
                          {"tzOffset", 7200},
                          {"connectionType", "WIFI"},
                          {"bundleId", "com.example.KXTests"},
                          {"asn", "KXTests"},
                          {"sdkName", "KXPublisher iOS"},
                          {"sdkVer", "v1.0"}}));
  EXPECT_EQ(standin::openSessions(), 0);
}

TEST_F(ApplePublisher, ReportsTheEntryIntoTheBackgroundUnderABackgroundTask) {
  startAndLogIn();
  standin::enterBackground();
  EXPECT_THAT(standin::begunBackgroundTasks(), ElementsAre("com.brindlecove.KXPublisher."));
  ASSERT_TRUE(arrive(1)) << collector.transcript();
  EXPECT_TRUE(standin::runMainLoopUntil([] { return !standin::endedBackgroundTasks().empty(); }));
  EXPECT_THAT(standin::endedBackgroundTasks(), ElementsAre(standin::firstBackgroundTask));
  standin::expireBackgroundTasks();
  EXPECT_THAT(standin::endedBackgroundTasks(), ElementsAre(standin::firstBackgroundTask));
}

TEST_F(ApplePublisher, ABackgroundTaskThatExpiresEndsOnceByItsIdentifier) {
  startAndLogIn();
  standin::holdIn(resume);
  standin::enterBackground();
  ASSERT_TRUE(
      standin::runMainLoopUntil([] { return standin::callsOf(resume) == 2; }));  // the login, the report
  EXPECT_THAT(standin::endedBackgroundTasks(), IsEmpty());
  standin::expireBackgroundTasks();
  EXPECT_THAT(standin::endedBackgroundTasks(), ElementsAre(standin::firstBackgroundTask));
  standin::letGo(resume);
  ASSERT_TRUE(arrive(1)) << collector.transcript();
  EXPECT_TRUE(standin::runMainLoopUntil([] { return standin::endedBackgroundTasks().size() == 2; }));
  EXPECT_THAT(standin::endedBackgroundTasks(),
              ElementsAre(standin::firstBackgroundTask, ::UIBackgroundTaskInvalid));
}

TEST_F(ApplePublisher, ReportsOnTheMainThreadWhereTheHostMayNotRefreshInTheBackground) {
  startAndLogIn();
  standin::application().backgroundRefreshStatus = UIBackgroundRefreshStatusDenied;
  const int resumedElsewhere = standin::callsOffMainThread(resume);
  const int resumed = standin::callsOf(resume);
  standin::enterBackground();
  EXPECT_EQ(standin::callsOf(resume), resumed + 1);
  EXPECT_EQ(standin::callsOffMainThread(resume), resumedElsewhere);
  EXPECT_THAT(standin::begunBackgroundTasks(), IsEmpty());
  EXPECT_TRUE(arrive(1)) << collector.transcript();
}

TEST_F(ApplePublisher, ReportsShortlyAfterTheReturnToTheForeground) {
  startAndLogIn();
  standin::enterBackground();
  standin::enterForeground();
  // On entry into the background, after the start and after the return.
  ASSERT_TRUE(arrive(3)) << collector.transcript();
  const std::set<std::string> identifiers = {message(0)["id"], message(1)["id"], message(2)["id"]};
  EXPECT_EQ(identifiers.size(), 3u);
}

TEST_F(ApplePublisher, ReportsWhileTheUserDrags) {
  startAndLogIn();
  EXPECT_TRUE(standin::trackUntil([this] { return collector.requests("message").size() == 1; }))
      << collector.transcript();
}

TEST_F(ApplePublisher, SendsNothingWhenTrackingIsLimited) {
  standin::advertising().identifier = @"00000000-0000-0000-0000-000000000000";
  startAndLogIn();
  const int resumed = standin::callsOf(resume);
  standin::enterBackground();
  ASSERT_TRUE(standin::runMainLoopUntil([] { return standin::endedBackgroundTasks().size() == 1; }));
  EXPECT_EQ(standin::callsOf(resume), resumed);
  EXPECT_EQ(collector.requests("message").size(), 0u);
}

TEST_F(ApplePublisher, IsTheSameForEachCall) {
  ::KXPublisher *const publisher = start();
  EXPECT_TRUE(publisher != nil);
  EXPECT_TRUE([::KXPublisher sharedInstanceWithApiToken:nil hostname:nil] == publisher);
  ASSERT_TRUE(standin::runMainLoopUntil([this] { return collector.requests("login").size() == 1; }));
  EXPECT_EQ(collector.requests("login").at(0)["document"]["payload"]["sub"], "T");
}

TEST_F(ApplePublisher, IsMadeOnceHoweverManyThreadsCall) {
  // Held up in the middle of the making, so that all of them meet there.
  constexpr const char *making = "+[UIDevice currentDevice]";
  standin::holdIn(making);
  std::vector<::KXPublisher *> publishers(8);
  std::vector<std::thread> threads;
  std::atomic<std::size_t> calling{0};
  for (auto &publisher : publishers) {
    threads.emplace_back([this, &publisher, &calling] {
      @autoreleasepool {
        NSString *const hostname = @(collector.hostname().c_str());
        ++calling;
        publisher = [::KXPublisher sharedInstanceWithApiToken:@"T" hostname:hostname];
      }
    });
  }
  EXPECT_TRUE(eventually([&] { return calling == threads.size() && standin::callsOf(making) > 0; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  standin::letGo(making);
  for (auto &thread : threads) thread.join();
  for (const auto &publisher : publishers) EXPECT_TRUE(publisher == publishers[0]);
  ASSERT_TRUE(standin::runMainLoopUntil([this] { return collector.requests("login").size() == 1; }));
}

TEST_F(ApplePublisher, DescribesTheMessage) {
  ::KXPublisher *const publisher = start();
  const auto device = KXDevice::sharedInstance();
  ASSERT_TRUE(standin::runMainLoopUntil([&] { return factsOf(*device).is_object(); }));
  const json described = json::parse(publisher.description.UTF8String);
  EXPECT_EQ(described["sdkName"], "KXPublisher iOS");
  EXPECT_EQ(described["ifa"], "6D92078A-8246-4BA4-AE5B-76104861E7DC");
}

TEST_F(ApplePublisher, PrintsWhatFailsAndNotTheToken) {
  ::testing::internal::CaptureStderr();
  standin::network().certificateAuthorityFile.clear();
  start();
  [start() enableDebugging];
  [start() disableDebugging];
  const auto networking = KXNetworking::sharedInstanceWithApiToken("", "");
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return networking->accessTokenRequestTimer() != nullptr; }));
  const std::string printed = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(printed, HasSubstr("[KX Error] Error getting access token: Error Domain=NSURLErrorDomain"));
  EXPECT_THAT(printed, Not(HasSubstr(collector.hostname())));
}

TEST_F(ApplePublisher, TellsWhyNothingArrives) {
  EXPECT_THAT([::KXPublisher diagnosis].UTF8String, HasSubstr("- The host has not made its call."));
  startAndLogIn();
  EXPECT_THAT([::KXPublisher diagnosis].UTF8String, HasSubstr("Login: succeeded "));
}

TEST_F(ApplePublisher, DebugsOnlyWhileItIsTo) {
  ::KXPublisher *const publisher = start();
  const auto log = KXLog::sharedInstance();
  EXPECT_EQ(log->logLevel(), KXLogLevelError);
  [publisher enableDebugging];
  EXPECT_EQ(log->logLevel(), KXLogLevelDebug);
  [publisher disableDebugging];
  EXPECT_EQ(log->logLevel(), KXLogLevelError);
}

TEST_F(ApplePublisher, SendsNothingWithoutThePathOfTheService) {
  kxPublisherFeedPathLogData = nil;
  startAndLogIn();
  const int resumed = standin::callsOf(resume);
  standin::enterBackground();
  ASSERT_TRUE(standin::runMainLoopUntil([] { return standin::endedBackgroundTasks().size() == 1; }));
  EXPECT_EQ(standin::callsOf(resume), resumed);
}

TEST_F(ApplePublisher, GoesOnWithoutAProviderWhoseServiceRaises) {
  standin::raiseIn("-[CTCarrier mobileCountryCode]");
  standin::raiseIn("SCNetworkReachabilityGetFlags");
  startAndLogIn();
  standin::enterBackground();
  ASSERT_TRUE(arrive(1)) << collector.transcript();
  EXPECT_FALSE(message(0).contains("carrierCode"));
  EXPECT_FALSE(message(0).contains("connectionType"));
  EXPECT_EQ(message(0)["model"], "iPhone");
}

/// What frameworks raise inside the host's own call.
class ApplePublisherTrouble : public ::testing::TestWithParam<const char *> {};

TEST_P(ApplePublisherTrouble, NeverReachesTheHost) {
  standin::raiseIn(GetParam());
  EXPECT_NO_THROW([::KXPublisher sharedInstanceWithApiToken:@"T" hostname:@"localhost:1"]);
  EXPECT_NO_THROW([[::KXPublisher sharedInstanceWithApiToken:@"T" hostname:@"localhost:1"] enableDebugging]);
  EXPECT_NO_THROW(standin::enterBackground());
  EXPECT_NO_THROW(standin::enterForeground());
  EXPECT_NO_THROW(standin::settleMainLoop());
}

INSTANTIATE_TEST_SUITE_P(InTheHostsCall, ApplePublisherTrouble,
                         ::testing::Values("+[UIDevice currentDevice]", "-[CTTelephonyNetworkInfo init]",
                                           "-[CLLocationManager init]",
                                           "-[CLLocationManager startUpdatingLocation]",
                                           "SCNetworkReachabilityCreateWithAddress",
                                           "SCNetworkReachabilityScheduleWithRunLoop",
                                           "-[UIApplication backgroundRefreshStatus]",
                                           "-[UIApplication beginBackgroundTaskWithName:expirationHandler:]",
                                           "+[NSURLSession sessionWithConfiguration:]"));

}  // namespace
}  // namespace kx
