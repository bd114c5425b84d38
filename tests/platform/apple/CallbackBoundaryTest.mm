// Where exceptions end, and what is said of them.

#import <Foundation/Foundation.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "KXPublisher/diagnostics/KXLog.h"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/providers/KXDevice.h"
#include "platform/apple/AppleCallbackBoundary.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

/// Raises when it is asked to describe itself.
@interface KXIndescribable : NSObject
@end

@implementation KXIndescribable
- (NSString *)description {
  [NSException raise:NSGenericException format:@"raised by a description"];
  return @"";
}
@end

/// Tells by way of a flag that it is gone.
@interface KXTestMortal : NSObject {
 @public
  std::shared_ptr<bool> isGone;
}
@end

@implementation KXTestMortal

- (void)dealloc {
  *isGone = true;
}

@end

namespace kx {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string printedWhen(const std::function<void()> &work) {
  ::testing::internal::CaptureStderr();
  runAtBoundary(work);
  return ::testing::internal::GetCapturedStderr();
}

TEST(AppleCallbackBoundary, TellsTheReasonOfACxxException) {
  EXPECT_THAT(printedWhen([] { throw std::runtime_error("the reason"); }),
              EndsWith("[KX Error] An exception ended a task: the reason\n"));
  EXPECT_THAT(printedWhen([] { throw 1; }),
              EndsWith("[KX Error] An exception ended a task: not a std::exception\n"));
}

TEST(AppleCallbackBoundary, TellsTheNameAndTheReasonOfAnNSException) {
  EXPECT_THAT(printedWhen([] { [NSException raise:NSRangeException format:@"number %d", 7]; }),
              EndsWith("[KX Error] An exception ended a task: NSRangeException: number 7\n"));
  EXPECT_THAT(
      printedWhen([] { [[NSException exceptionWithName:NSGenericException reason:nil userInfo:nil] raise]; }),
      HasSubstr("[KX Error] An exception ended a task: NSGenericException: "));
}

TEST(AppleCallbackBoundary, TellsOfAnyObjectThatIsThrown) {
  EXPECT_THAT(printedWhen([] { @throw @"thrown text"; }),
              EndsWith("[KX Error] An exception ended a task: thrown text\n"));
  EXPECT_THAT(printedWhen([] { @throw [[KXIndescribable alloc] init]; }),
              EndsWith("[KX Error] An exception ended a task: an object that cannot be described\n"));
}

TEST(AppleCallbackBoundary, PrintsNothingWhileTheLogIsOff) {
  KXLog::sharedInstance()->setLogLevel(KXLogLevelOff);
  EXPECT_THAT(printedWhen([] { throw std::runtime_error("the reason"); }), IsEmpty());
  EXPECT_THAT(printedWhen([] { throw 1; }), IsEmpty());
  EXPECT_THAT(printedWhen([] { [NSException raise:NSGenericException format:@"raised"]; }), IsEmpty());
  EXPECT_THAT(printedWhen([] { @throw @"thrown text"; }), IsEmpty());
}

TEST(AppleCallbackBoundary, AFailureInTheFirstCallOfAllIsReported) {
  standin::raiseIn("+[UIDevice currentDevice]");
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(KXDevice::sharedInstance()->currentDevice(), nullptr);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("[KX Error] An exception ended a task: "));
}

TEST(AppleCallbackBoundary, SaysNothingOfWhatEndsWell) {
  EXPECT_EQ(printedWhen([] {}), "");
}

TEST(AppleCallbackBoundary, ReleasesWhatIsAutoreleasedOnAThreadWithoutAPool) {
  const auto isGone = std::make_shared<bool>(false);
  std::thread([&isGone] {
    runAtBoundary([&isGone] {
      KXTestMortal *const mortal = [[KXTestMortal alloc] init];
      mortal->isGone = isGone;
      NSArray *const holder = [NSArray arrayWithObject:mortal];
      EXPECT_EQ(holder.count, 1u);
      EXPECT_FALSE(*isGone);
    });
    EXPECT_TRUE(*isGone);
  }).join();
}

/// The host observes what the library posts, and fails.
void failInTheHostsObserver() {
  NSString *const name = @(constants::kReachabilityDidChangeNotification);
  [[NSNotificationCenter defaultCenter] addObserverForName:name
                                                    object:nil
                                                     queue:nil
                                                usingBlock:^(NSNotification *) {
                                                  throw std::runtime_error("thrown by the host");
                                                }];
  const auto connection = KXConnection::sharedInstance();
  standin::settleMainLoop();
  standin::changeReachability(0);
  standin::settleMainLoop();
  std::_Exit(0);
}

TEST(AppleCallbackBoundary, AnExceptionOfTheHostsOwnObserverIsTheHosts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(failInTheHostsObserver(), "thrown by the host");
}

}  // namespace
}  // namespace kx
