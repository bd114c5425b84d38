#include <string>
#include <thread>
#include <vector>

#include "KXPublisher/providers/KXDevice.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

class KXDeviceTest : public SimulatedTest {
 protected:
  /// The facts that a provider created now computes.
  Dictionary facts() {
    const auto provider = KXDevice::sharedInstance();
    device.runReadyTasks();
    const auto data = provider->data();
    return data == nullptr ? Dictionary() : *data->contents();
  }
};

TEST_F(KXDeviceTest, DescribesTheDevice) {
  EXPECT_EQ(facts(), (Dictionary{{"deviceCategory", "Phone"},
                                 {"make", "Apple"},
                                 {"model", "iPhone"},
                                 {"platform", "iOS"},
                                 {"osVersion", "iOS 12.4"},
                                 {"name", "iPhone10,4"},
                                 {"userAgent", "Mozilla/5.0 (iPhone; CPU iPhone OS 12_4 like Mac OS X)"},
                                 {"ifa", "6D92078A-8246-4BA4-AE5B-76104861E7DC"},
                                 {"dnt", 0},
                                 {"languages", Array{"en-GB", "de-DE"}}}));
}

TEST_F(KXDeviceTest, NamesTheCategoriesThatItKnowsAndNumbersTheOthers) {
  const auto provider = KXDevice::sharedInstance();
  const auto category = [&](long idiom) {
    device.device->idiom = idiom;
    return provider->deviceType();
  };
  EXPECT_EQ(category(-1), "Unspecified");
  EXPECT_EQ(category(0), "Phone");
  EXPECT_EQ(category(1), "Tablet");
  EXPECT_EQ(category(2), "TV");
  EXPECT_EQ(category(3), "CarPlay");
  EXPECT_EQ(category(4), "4");
  EXPECT_EQ(category(5), "5");
  EXPECT_EQ(category(-2), "-2");
}

TEST_F(KXDeviceTest, ReportsWhatItCanWithoutADevice) {
  device.device->present = false;
  const Dictionary known = facts();
  for (const char *key : {"deviceCategory", "model", "platform", "osVersion"}) {
    EXPECT_EQ(known.find(key), nullptr) << key;
  }
  for (const char *key : {"make", "name", "userAgent", "ifa", "dnt", "languages"}) {
    EXPECT_NE(known.find(key), nullptr) << key;
  }
}

TEST_F(KXDeviceTest, ReportsNothingButTheMakeWhenNothingIsKnown) {
  device.device->present = false;
  device.uname.machineText = std::nullopt;
  device.webViewService.present = false;
  device.advertisingService->present = false;
  device.localeService.languages.clear();
  EXPECT_EQ(facts(), (Dictionary{{"make", "Apple"}}));
}

TEST_F(KXDeviceTest, LeavesOutTheVersionThatItCannotTellWhole) {
  device.device->systemVersionText = std::nullopt;
  const Dictionary known = facts();
  EXPECT_EQ(*known.find("platform"), Value("iOS"));
  EXPECT_EQ(known.find("osVersion"), nullptr);
}

TEST_F(KXDeviceTest, LeavesOutTheVersionWithoutASystemName) {
  device.device->systemNameText = std::nullopt;
  const Dictionary known = facts();
  EXPECT_EQ(known.find("platform"), nullptr);
  EXPECT_EQ(known.find("osVersion"), nullptr);
}

TEST_F(KXDeviceTest, LeavesOutAModelThatIsNotKnown) {
  device.device->modelText = std::nullopt;
  EXPECT_EQ(facts().find("model"), nullptr);
}

TEST_F(KXDeviceTest, LeavesOutWhatIsEmpty) {
  device.device->modelText = "";
  device.uname.machineText = "";
  device.advertisingService->identifier = "";
  for (const char *key : {"model", "name", "ifa"}) EXPECT_EQ(facts().find(key), nullptr) << key;
  EXPECT_NE(facts().find("platform"), nullptr);
}

TEST_F(KXDeviceTest, PassesALimitedIdentifierOnWithTheUsersChoice) {
  device.advertisingService->trackingEnabled = false;
  device.advertisingService->identifier = "00000000-0000-0000-0000-000000000000";
  const Dictionary known = facts();
  EXPECT_EQ(*known.find("ifa"), Value("00000000-0000-0000-0000-000000000000"));
  EXPECT_EQ(*known.find("dnt"), Value(1));
}

TEST_F(KXDeviceTest, ReportsTheUsersChoiceWithoutAnIdentifier) {
  device.advertisingService->identifier = std::nullopt;
  const Dictionary known = facts();
  EXPECT_EQ(known.find("ifa"), nullptr);
  EXPECT_EQ(*known.find("dnt"), Value(0));
}

TEST_F(KXDeviceTest, LeavesOutAnEmptyListOfLanguages) {
  device.localeService.languages.clear();
  EXPECT_EQ(facts().find("languages"), nullptr);
  EXPECT_EQ(KXDevice::sharedInstance()->languages(), std::nullopt);
}

TEST_F(KXDeviceTest, ReportsEveryLanguageAsItIs) {
  device.localeService.languages = {"sr-Latn-RS", "en", "x-odd"};
  EXPECT_EQ(*facts().find("languages"), Value(Array{"sr-Latn-RS", "en", "x-odd"}));
}

TEST_F(KXDeviceTest, MakesOneWebViewAComputationAndReleasesIt) {
  facts();
  EXPECT_EQ(device.webViewService.made, 1);
  EXPECT_EQ(device.webViewService.alive, 0);
  KXDevice::sharedInstance()->updateData();
  device.runReadyTasks();
  EXPECT_EQ(device.webViewService.made, 2);
}

TEST_F(KXDeviceTest, LeavesOutTheUserAgentWhenTheScriptYieldsNothing) {
  device.webViewService.userAgent = std::nullopt;
  EXPECT_EQ(facts().find("userAgent"), nullptr);
}

TEST_F(KXDeviceTest, WouldDeadlockOnTheMainThread) {
  const auto provider = KXDevice::sharedInstance();
  EXPECT_THROW(provider->userAgent(), SimulatedDeadlock);
  EXPECT_THROW(provider->computeData(), SimulatedDeadlock);
}

TEST_F(KXDeviceTest, IsComputedOnceInAProcess) {
  const Dictionary before = facts();
  device.advertisingService->trackingEnabled = false;
  device.localeService.languages = {"fr"};
  device.application->enterBackground();
  device.advance(100);
  device.application->enterForeground();
  device.advance(86400);
  EXPECT_EQ(facts(), before);
}

TEST_F(KXDeviceTest, IsPermittedAndUnmonitoredInEveryState) {
  const auto provider = KXDevice::sharedInstance();
  for (const bool present : {true, false}) {
    device.device->present = present;
    EXPECT_TRUE(provider->hasPermissions());
    EXPECT_FALSE(provider->needsMonitoring());
  }
}

TEST_F(KXDeviceTest, TakesTheDeviceOnceAtItsCreation) {
  const auto provider = KXDevice::sharedInstance();
  device.device->present = false;
  EXPECT_EQ(provider->currentDevice(), device.device);
  device.device->present = true;
  provider->setCurrentDevice(nullptr);
  EXPECT_EQ(provider->deviceType(), std::nullopt);
}

}  // namespace
}  // namespace kx
