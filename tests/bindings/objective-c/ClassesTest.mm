// Every class of the library, seen from Objective-C: how they are made, and the log.

#import <KXPublisher/KXPublisherClasses.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "KXPublisher/diagnostics/KXLog.h"
#include "KXPublisher/platform/foundation/Object.h"
#include "bindings/objective-c/ObjectiveCFace.h"
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

class Anything : public kx::Object {};

// Two threads at once ask for the face of the same object: who comes second gets the first one's.
TEST(ObjectiveCFace, IsTheFirstOneMade) {
  const Anything object;
  NSObject *const first = [[NSObject alloc] init];
  NSObject *const second = [[NSObject alloc] init];
  EXPECT_TRUE(kx::becomeFaceOf(&object, first) == first);
  EXPECT_TRUE(kx::becomeFaceOf(&object, second) == first);
  EXPECT_TRUE(kx::knownFaceOf(&object) == first);
}

// While a face goes, another thread may already have made the next.
TEST(ObjectiveCFace, ThatGoesDoesNotTakeTheNextOneAlong) {
  const Anything object;
  NSObject *const next = [[NSObject alloc] init];
  kx::becomeFaceOf(&object, next);
  kx::forgetFaceOf(&object);
  EXPECT_TRUE(kx::knownFaceOf(&object) == next);
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
