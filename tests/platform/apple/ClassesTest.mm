// Every class of the library, seen from Objective-C: how they are made, and the log.

#import <KXPublisher/KXPublisherClasses.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "KXPublisher/diagnostics/KXLog.h"
#include "tests/platform/apple/harness/Raised.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

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
  EXPECT_THAT(kx::raisedBy([] { [[KXLog sharedInstance] log:static_cast<KXLogLevel>(-1) message:@""]; }),
              HasSubstr("NSRangeException: "));
}

}  // namespace
