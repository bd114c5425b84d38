// What the device, its web engine and its system tell of themselves.

#import <Foundation/Foundation.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <thread>

#include "KXPublisher/platform/Bundle.h"
#include "KXPublisher/platform/Clock.h"
#include "KXPublisher/platform/Console.h"
#include "KXPublisher/platform/Device.h"
#include "KXPublisher/platform/Locale.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/ProcessInfo.h"
#include "KXPublisher/platform/WebView.h"
#include "KXPublisher/providers/KXAsn.h"
#include "KXPublisher/providers/KXDevice.h"
#include "tests/platform/apple/harness/Facts.h"
#include "tests/platform/apple/harness/StandInDevice.h"

/// Half of a surrogate pair, which UTF-8 cannot hold.
@interface KXTestHalfPair : NSString
@end

@implementation KXTestHalfPair

- (NSUInteger)length {
  return 1;
}

- (unichar)characterAtIndex:(NSUInteger)index {
  return static_cast<unichar>(0xD83D + index);
}

- (NSData *)dataUsingEncoding:(NSStringEncoding)encoding {
  return encoding == NSUTF8StringEncoding ? nil : [super dataUsingEncoding:encoding];
}

@end

namespace kx {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string machine() {
  utsname names{};
  uname(&names);
  return names.machine;
}

/// Those of the machine that the tests run on.
json preferredLanguages() {
  json languages = json::array();
  for (NSString *language in [NSLocale preferredLanguages]) languages.push_back(language.UTF8String);
  return languages;
}

bool comesToKnowOfTheDevice(const std::string &key, const json &value) {
  const auto provider = KXDevice::sharedInstance();
  return standin::runMainLoopUntil(
      [&] { return factsOf(*provider).is_object() && factsOf(*provider).value(key, json()) == value; });
}

TEST(AppleDevice, TellsEverything) {
  EXPECT_TRUE(comesToKnow(
      *KXDevice::sharedInstance(),
      {{"deviceCategory", "Phone"},
       {"make", "Apple"},
       {"model", "iPhone"},
       {"platform", "iOS"},
       {"osVersion", "iOS 12.4"},
       {"name", machine()},
       {"userAgent", "Mozilla/5.0 (iPhone; CPU iPhone OS 12_4 like Mac OS X) AppleWebKit/605.1.15"},
       {"ifa", "6D92078A-8246-4BA4-AE5B-76104861E7DC"},
       {"dnt", 0},
       {"languages", preferredLanguages()}}))
      << factsOf(*KXDevice::sharedInstance());
}

TEST(AppleDevice, LeavesOutWhatIsNotKnown) {
  standin::device().isPresent = false;
  standin::webEngine().makesViews = false;
  standin::advertising().isPresent = false;
  const auto provider = KXDevice::sharedInstance();
  EXPECT_TRUE(standin::runMainLoopUntil([&] { return factsOf(*provider).is_object(); }));
  EXPECT_EQ(factsOf(*provider),
            (json{{"make", "Apple"}, {"name", machine()}, {"languages", preferredLanguages()}}));
}

TEST(AppleDevice, IsAskedForOnce) {
  auto &devices = Platform::current().devices();
  ASSERT_NE(devices.currentDevice(), nullptr);
  EXPECT_EQ(devices.currentDevice(), devices.currentDevice());
  EXPECT_EQ(standin::callsOf("+[UIDevice currentDevice]"), 1);
}

TEST(AppleDevice, MayFailToAnswer) {
  standin::raiseIn("+[UIDevice currentDevice]");
  EXPECT_NO_THROW(EXPECT_EQ(Platform::current().devices().currentDevice(), nullptr));
}

TEST(AppleDevice, LeavesOutTheVersionThatIsNotKnown) {
  standin::device().systemVersion = nil;
  standin::device().model = nil;
  EXPECT_TRUE(comesToKnowOfTheDevice("platform", "iOS"));
  const json facts = factsOf(*KXDevice::sharedInstance());
  EXPECT_FALSE(facts.contains("osVersion"));
  EXPECT_FALSE(facts.contains("model"));
}

TEST(AppleDevice, TellsAPadATablet) {
  standin::device().userInterfaceIdiom = 1;
  EXPECT_TRUE(comesToKnowOfTheDevice("deviceCategory", "Tablet"));
}

TEST(AppleDevice, TellsAnUnspecifiedIdiom) {
  standin::device().userInterfaceIdiom = -1;
  EXPECT_TRUE(comesToKnowOfTheDevice("deviceCategory", "Unspecified"));
}

TEST(AppleDevice, TellsAnUnknownIdiomByItsNumber) {
  standin::device().userInterfaceIdiom = 5;
  EXPECT_TRUE(comesToKnowOfTheDevice("deviceCategory", "5"));
}

TEST(AppleDevice, TellsAnEmptyModel) {
  standin::device().model = @"";
  EXPECT_TRUE(comesToKnowOfTheDevice("platform", "iOS"));
  EXPECT_EQ(Platform::current().devices().currentDevice()->model(), "");
}

TEST(AppleLocale, TellsEveryLanguageInTheUsersOrder) {
  standin::setPreferredLanguages(@[ @"de-DE", @"en-GB", @"tlh" ]);
  EXPECT_TRUE(comesToKnowOfTheDevice("languages", {"de-DE", "en-GB", "tlh"}));
}

TEST(AppleLocale, LeavesOutALanguageThatIsNoText) {
  standin::setPreferredLanguages(@[ @"de-DE", [KXTestHalfPair new], @"tlh" ]);
  EXPECT_THAT(Platform::current().locale().preferredLanguages(), ElementsAre("de-DE", "tlh"));
}

TEST(AppleLocale, MayPreferNoLanguage) {
  standin::setPreferredLanguages(@[]);
  EXPECT_THAT(Platform::current().locale().preferredLanguages(), IsEmpty());
}

TEST(AppleAdvertising, PassesOnTheIdentifierOfLimitedTracking) {
  standin::advertising().identifier = @"00000000-0000-0000-0000-000000000000";
  standin::advertising().isTrackingEnabled = false;
  EXPECT_TRUE(comesToKnowOfTheDevice("ifa", "00000000-0000-0000-0000-000000000000"));
  EXPECT_TRUE(comesToKnowOfTheDevice("dnt", 1));
}

TEST(AppleAdvertising, MayHaveNoIdentifier) {
  standin::advertising().identifier = nil;
  EXPECT_TRUE(comesToKnowOfTheDevice("dnt", 0));
  EXPECT_FALSE(factsOf(*KXDevice::sharedInstance()).contains("ifa"));
}

TEST(AppleWebView, IsMadeUsedAndReleasedOnTheMainThreadOnly) {
  EXPECT_TRUE(comesToKnowOfTheDevice("make", "Apple"));
  for (const char *operation : {"-[UIWebView init]", "-[UIWebView stringByEvaluatingJavaScriptFromString:]",
                                "-[UIWebView dealloc]"}) {
    EXPECT_TRUE(standin::runMainLoopUntil([=] { return standin::callsOf(operation) == 1; })) << operation;
    EXPECT_EQ(standin::callsOffMainThread(operation), 0) << operation;
  }
}

TEST(AppleWebView, IsNoneWhenTheSystemMakesNone) {
  EXPECT_NE(Platform::current().webViews().makeWebView(), nullptr);
  standin::webEngine().makesViews = false;
  EXPECT_EQ(Platform::current().webViews().makeWebView(), nullptr);
}

TEST(AppleWebView, SurvivesWhatTheWebEngineRaises) {
  standin::raiseIn("-[UIWebView stringByEvaluatingJavaScriptFromString:]");
  EXPECT_TRUE(comesToKnowOfTheDevice("make", "Apple"));
  EXPECT_FALSE(factsOf(*KXDevice::sharedInstance()).contains("userAgent"));
}

TEST(AppleBundle, TellsTheHostApplication) {
  EXPECT_TRUE(
      comesToKnow(*KXAsn::sharedInstance(), {{"bundleId", "com.example.KXTests"}, {"asn", "KXTests"}}));
}

TEST(AppleBundle, IsFoundByItsIdentifierOnly) {
  auto &bundles = Platform::current().bundles();
  ASSERT_EQ(bundles.mainBundle()->bundleIdentifier(), "com.example.KXTests");
  ASSERT_NE(bundles.bundleWithIdentifier("com.example.KXTests"), nullptr);
  EXPECT_EQ(bundles.bundleWithIdentifier("com.example.Other"), nullptr);
  EXPECT_EQ(bundles.bundleWithIdentifier(std::nullopt), nullptr);
  EXPECT_EQ(bundles.mainBundle()->objectForInfoDictionaryKey("KXNoSuchKey"), std::nullopt);
  EXPECT_EQ(bundles.bundleWithIdentifier("\xFF"), nullptr);
}

TEST(AppleBundle, GivesOnlyTextsOfItsInformation) {
  const auto bundle = Platform::current().bundles().mainBundle();
  ASSERT_TRUE(
      [[[NSBundle mainBundle] objectForInfoDictionaryKey:@"KXTestList"] isKindOfClass:[NSArray class]]);
  EXPECT_NO_THROW(EXPECT_EQ(bundle->objectForInfoDictionaryKey("KXTestList"), std::nullopt));
  EXPECT_EQ(bundle->objectForInfoDictionaryKey("KXTestEmpty"), Value(""));
  EXPECT_EQ(bundle->objectForInfoDictionaryKey("\xFF"), std::nullopt);
}

TEST(AppleClock, IsTheSystems) {
  const double before = static_cast<double>(time(nullptr));
  const double now = Platform::current().clock().timeIntervalSince1970();
  EXPECT_GE(now, before);
  EXPECT_LE(now, static_cast<double>(time(nullptr)) + 1);
}

TEST(AppleProcessInfo, GivesANewTextEachTime) {
  auto &processInfo = Platform::current().processInfo();
  const std::string text = processInfo.globallyUniqueString();
  EXPECT_NE(text, "");
  EXPECT_NE(processInfo.globallyUniqueString(), text);
}

TEST(AppleConsole, PrintsALineAsItIs) {
  ::testing::internal::CaptureStderr();
  Platform::current().console().log("[KX Error] 100 %@ %s \xC3\xA4");
  Platform::current().console().log("not UTF-8: \xE4");
  const std::string printed = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(printed, HasSubstr("[KX Error] 100 %@ %s \xC3\xA4\n"));
  EXPECT_THAT(printed, HasSubstr("not UTF-8: \xC3\xA4\n"));
}

}  // namespace
}  // namespace kx
