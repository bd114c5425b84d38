// The mobile network subscription.

#include <gtest/gtest.h>

#include <atomic>

#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/Telephony.h"
#include "KXPublisher/providers/KXCarrier.h"
#include "tests/platform/apple/harness/Facts.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx {
namespace {

using nlohmann::json;

TEST(AppleTelephony, TellsTheCarrierAndTheTechnology) {
  EXPECT_TRUE(comesToKnow(*KXCarrier::sharedInstance(),
                          {{"carrierCode", "310-410"}, {"radioAccessTechnology", "LTE"}}));
}

TEST(AppleTelephony, FollowsTheCarrier) {
  const auto provider = KXCarrier::sharedInstance();
  standin::changeCarrier(@"262", @"01");
  EXPECT_TRUE(comesToKnow(*provider, {{"carrierCode", "262-01"}, {"radioAccessTechnology", "LTE"}}));
}

TEST(AppleTelephony, AsksForTheOneSubscriberWhileTheSystemKnowsOne) {
  const auto provider = KXCarrier::sharedInstance();
  EXPECT_TRUE(comesToKnow(*provider, {{"carrierCode", "310-410"}, {"radioAccessTechnology", "LTE"}}));
  standin::changeCarrier(@"262", @"01");
  EXPECT_TRUE(comesToKnow(*provider, {{"carrierCode", "262-01"}, {"radioAccessTechnology", "LTE"}}));
  for (const char *successor :
       {"-[CTTelephonyNetworkInfo dataServiceIdentifier]",
        "-[CTTelephonyNetworkInfo serviceSubscriberCellularProviders]",
        "-[CTTelephonyNetworkInfo serviceCurrentRadioAccessTechnology]",
        "-[CTTelephonyNetworkInfo setServiceSubscriberCellularProvidersDidUpdateNotifier:]"}) {
    EXPECT_EQ(standin::callsOf(successor), 0) << successor;
  }
}

TEST(AppleTelephony, NeedsNoServicesWhileTheSystemKnowsTheSubscriber) {
  standin::telephony().hasServiceInterfaces = false;
  const auto provider = KXCarrier::sharedInstance();
  EXPECT_TRUE(comesToKnow(*provider, {{"carrierCode", "310-410"}, {"radioAccessTechnology", "LTE"}}));
  standin::changeCarrier(@"262", @"01");
  EXPECT_TRUE(comesToKnow(*provider, {{"carrierCode", "262-01"}, {"radioAccessTechnology", "LTE"}}));
}

TEST(AppleTelephony, AsksForTheDataServiceWhereTheSystemKnowsNoSubscriber) {
  standin::telephony().hasNamedInterfaces = false;
  const auto provider = KXCarrier::sharedInstance();
  EXPECT_TRUE(comesToKnow(*provider, {{"carrierCode", "310-410"}, {"radioAccessTechnology", "LTE"}}));
  standin::changeCarrier(@"262", @"01");
  EXPECT_TRUE(comesToKnow(*provider, {{"carrierCode", "262-01"}, {"radioAccessTechnology", "LTE"}}));
}

TEST(AppleTelephony, TellsNothingOfOtherSubscriptions) {
  standin::telephony().hasNamedInterfaces = false;
  standin::telephony().otherSubscriptions = 8;
  const auto provider = KXCarrier::sharedInstance();
  EXPECT_TRUE(comesToKnow(*provider, {{"carrierCode", "310-410"}, {"radioAccessTechnology", "LTE"}}));
  standin::telephony().radioAccessTechnology = @"CTRadioAccessTechnologyNR";
  standin::changeCarrier(@"262", @"01");
  EXPECT_TRUE(comesToKnow(*provider, {{"carrierCode", "262-01"}, {"radioAccessTechnology", "NR"}}));
}

TEST(AppleTelephony, TellsNothingOfOtherSubscriptionsWhereNoneCarriesTheData) {
  standin::telephony().hasNamedInterfaces = false;
  standin::telephony().otherSubscriptions = 8;
  standin::telephony().hasCarrier = false;
  standin::telephony().radioAccessTechnology = nil;
  EXPECT_TRUE(comesToKnow(*KXCarrier::sharedInstance(), json::object()));
}

TEST(AppleTelephony, TellsNothingWhereNeitherTheSubscriberNorTheDataServiceIsKnown) {
  standin::telephony().hasNamedInterfaces = false;
  standin::telephony().hasDataService = false;
  EXPECT_TRUE(comesToKnow(*KXCarrier::sharedInstance(), json::object()));
}

TEST(AppleTelephony, HandsOnTheCarrierThatIsReported) {
  standin::telephony().hasCarrier = false;  // whoever asks afresh finds none
  std::atomic<int> reports{0};
  const auto info = Platform::current().telephony().makeTelephonyNetworkInfo();
  info->setSubscriberCellularProviderDidUpdateNotifier([&reports](const std::shared_ptr<Carrier> &carrier) {
    ASSERT_NE(carrier, nullptr);
    EXPECT_EQ(carrier->mobileCountryCode(), "262");
    ++reports;
  });
  standin::changeCarrier(@"262", @"01");
  EXPECT_EQ(reports, 1);
}

TEST(AppleTelephony, IsReadAfreshOnEachReturnToTheForeground) {
  const auto provider = KXCarrier::sharedInstance();
  EXPECT_EQ(standin::telephonyObjects(), 1);
  standin::telephony().mobileCountryCode = @"208";
  standin::telephony().radioAccessTechnology = @"Carrier Pigeon";
  @autoreleasepool {
    standin::enterForeground();
  }
  EXPECT_TRUE(
      comesToKnow(*provider, {{"carrierCode", "208-410"}, {"radioAccessTechnology", "Carrier Pigeon"}}));
  EXPECT_EQ(standin::telephonyObjects(), 1);
  standin::changeCarrier(@"262", @"01");
  EXPECT_TRUE(
      comesToKnow(*provider, {{"carrierCode", "262-01"}, {"radioAccessTechnology", "Carrier Pigeon"}}));
}

TEST(AppleTelephony, LeavesOutWhatItDoesNotKnow) {
  standin::telephony().mobileNetworkCode = nil;
  standin::telephony().radioAccessTechnology = nil;
  EXPECT_TRUE(comesToKnow(*KXCarrier::sharedInstance(), json::object()));
}

TEST(AppleTelephony, MayHaveNoCarrier) {
  standin::telephony().hasCarrier = false;
  const auto info = Platform::current().telephony().makeTelephonyNetworkInfo();
  EXPECT_EQ(info->subscriberCellularProvider(), nullptr);
  EXPECT_TRUE(comesToKnow(*KXCarrier::sharedInstance(), {{"radioAccessTechnology", "LTE"}}));
}

TEST(AppleTelephony, MayBeMissing) {
  standin::telephony().isPresent = false;
  EXPECT_EQ(Platform::current().telephony().makeTelephonyNetworkInfo(), nullptr);
  EXPECT_TRUE(comesToKnow(*KXCarrier::sharedInstance(), json::object()));
}

TEST(AppleTelephony, ReportsUntilItIsReleased) {
  std::atomic<int> reports{0};
  auto info = Platform::current().telephony().makeTelephonyNetworkInfo();
  info->setSubscriberCellularProviderDidUpdateNotifier([&reports](const std::shared_ptr<Carrier> &carrier) {
    EXPECT_EQ(carrier->mobileCountryCode(), "262");
    ++reports;
  });
  standin::changeCarrier(@"262", @"01");
  EXPECT_EQ(reports, 1);
  @autoreleasepool {
    info.reset();
  }
  EXPECT_EQ(standin::telephonyObjects(), 0);
  standin::changeCarrier(@"262", @"02");
  EXPECT_EQ(reports, 1);
}

TEST(AppleTelephony, OfServicesReportsUntilItIsReleased) {
  standin::telephony().hasNamedInterfaces = false;
  std::atomic<int> reports{0};
  auto info = Platform::current().telephony().makeTelephonyNetworkInfo();
  info->setSubscriberCellularProviderDidUpdateNotifier([&reports](const std::shared_ptr<Carrier> &carrier) {
    EXPECT_EQ(carrier->mobileCountryCode(), "262");
    ++reports;
  });
  standin::changeCarrier(@"262", @"01");
  EXPECT_EQ(reports, 1);
  @autoreleasepool {
    info.reset();
  }
  EXPECT_EQ(standin::telephonyObjects(), 0);
}

TEST(AppleTelephony, OfServicesEndsWhatANotifierThrows) {
  standin::telephony().hasNamedInterfaces = false;
  const auto info = Platform::current().telephony().makeTelephonyNetworkInfo();
  std::atomic<int> reports{0};
  info->setSubscriberCellularProviderDidUpdateNotifier([&reports](const std::shared_ptr<Carrier> &) {
    ++reports;
    throw 1;
  });
  standin::changeCarrier(@"262", @"01");
  standin::changeCarrier(@"262", @"02");
  EXPECT_EQ(reports, 2);
}

TEST(AppleTelephony, EndsWhatANotifierThrows) {
  const auto info = Platform::current().telephony().makeTelephonyNetworkInfo();
  std::atomic<int> reports{0};
  info->setSubscriberCellularProviderDidUpdateNotifier([&reports](const std::shared_ptr<Carrier> &) {
    ++reports;
    throw 1;
  });
  standin::changeCarrier(@"262", @"01");
  standin::changeCarrier(@"262", @"02");
  EXPECT_EQ(reports, 2);
}

}  // namespace
}  // namespace kx
