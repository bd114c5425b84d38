#include <stdexcept>

#include "KXPublisher/providers/KXCarrier.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

class KXCarrierTest : public SimulatedTest {
 protected:
  Dictionary facts() {
    const auto provider = KXCarrier::sharedInstance();
    device.runReadyTasks();
    return *provider->data()->contents();
  }
};

TEST_F(KXCarrierTest, JoinsCountryAndNetworkCodeAndShortensTheTechnology) {
  EXPECT_EQ(facts(), (Dictionary{{"carrierCode", "310-410"}, {"radioAccessTechnology", "LTE"}}));
}

TEST_F(KXCarrierTest, LeavesOutACodeThatIsNotWhole) {
  device.telephonyService.carrier = SimulatedCarrier{"310", std::nullopt};
  EXPECT_EQ(facts().find("carrierCode"), nullptr);
}

TEST_F(KXCarrierTest, LeavesOutACodeWithoutACountry) {
  device.telephonyService.carrier = SimulatedCarrier{std::nullopt, "410"};
  EXPECT_EQ(facts().find("carrierCode"), nullptr);
}

TEST_F(KXCarrierTest, KeepsATechnologyOfAnotherForm) {
  device.telephonyService.radioAccessTechnology = "SomethingNew";
  EXPECT_EQ(*facts().find("radioAccessTechnology"), Value("SomethingNew"));
}

TEST_F(KXCarrierTest, RemovesEveryOccurrenceOfThePrefix) {
  device.telephonyService.radioAccessTechnology =
      "CTRadioAccessTechnologyHSDPA+CTRadioAccessTechnologyCTRadioAccessTechnologyEdge";
  EXPECT_EQ(*facts().find("radioAccessTechnology"), Value("HSDPA+Edge"));
}

TEST_F(KXCarrierTest, LeavesOutATechnologyOfWhichNothingRemains) {
  device.telephonyService.radioAccessTechnology = "CTRadioAccessTechnology";
  EXPECT_EQ(facts().find("radioAccessTechnology"), nullptr);
}

TEST_F(KXCarrierTest, IsEmptyWithoutCarrierAndTechnology) {
  device.telephonyService.carrier = std::nullopt;
  device.telephonyService.radioAccessTechnology = std::nullopt;
  EXPECT_TRUE(facts().empty());
}

TEST_F(KXCarrierTest, IsEmptyWithoutTelephony) {
  device.telephonyService.present = false;
  EXPECT_TRUE(facts().empty());
  device.application->enterForeground();
  EXPECT_TRUE(facts().empty());
}

TEST_F(KXCarrierTest, IgnoresNotificationsOfAnotherSender) {
  facts();
  const auto other = std::make_shared<SimulatedApplication>(device.notificationCenter, device.scheduler);
  other->enterForeground();
  EXPECT_EQ(device.telephonyService.made, 1);
}

TEST_F(KXCarrierTest, GoesOnFollowingTheTelephonyObjectBeforeWhereTheNextOneCannotBeFollowed) {
  class NotFollowed : public TelephonyNetworkInfo, public TelephonyService {
    std::shared_ptr<Carrier> subscriberCellularProvider() override { return nullptr; }
    void setSubscriberCellularProviderDidUpdateNotifier(
        SubscriberCellularProviderDidUpdateNotifier) override {
      throw std::runtime_error("no notifier");
    }
    std::optional<std::string> currentRadioAccessTechnology() override { return std::nullopt; }
    std::shared_ptr<TelephonyNetworkInfo> makeTelephonyNetworkInfo() override {
      return {std::shared_ptr<void>(), this};
    }
  };
  const auto provider = KXCarrier::sharedInstance();
  device.runReadyTasks();
  const auto before = provider->networkInfo();
  device.replaced.telephony = std::make_shared<NotFollowed>();
  EXPECT_THROW(provider->initCarrierInfo(), std::runtime_error);
  EXPECT_EQ(provider->networkInfo(), before);
}

TEST_F(KXCarrierTest, NeverReportsTheCarriersName) {
  EXPECT_EQ(facts().find("carrierName"), nullptr);
}

TEST_F(KXCarrierTest, FollowsAChangeOfTheSubscribersCarrier) {
  facts();
  device.telephonyService.changeCarrier(SimulatedCarrier{"262", "01"});
  EXPECT_EQ(*facts().find("carrierCode"), Value("262-01"));
  device.telephonyService.changeCarrier(std::nullopt);
  EXPECT_EQ(facts().find("carrierCode"), nullptr);
}

TEST_F(KXCarrierTest, ReadsTheCarrierOfTheChangeAndNotALaterOne) {
  facts();
  const auto provider = KXCarrier::sharedInstance();
  device.telephonyService.carrier = SimulatedCarrier{"262", "01"};  // without a report
  provider->updateData();
  EXPECT_EQ(*facts().find("carrierCode"), Value("310-410"));
}

TEST_F(KXCarrierTest, ReadsTheTechnologyAfreshAtEachComputation) {
  facts();
  device.telephonyService.radioAccessTechnology = "CTRadioAccessTechnologyEdge";
  KXCarrier::sharedInstance()->updateData();
  EXPECT_EQ(*facts().find("radioAccessTechnology"), Value("Edge"));
}

TEST_F(KXCarrierTest, ReadsEverythingAfreshAtTheReturnToTheForeground) {
  facts();
  const auto provider = KXCarrier::sharedInstance();
  const auto before = provider->networkInfo();
  device.telephonyService.carrier = SimulatedCarrier{"262", "01"};
  device.telephonyService.radioAccessTechnology = "CTRadioAccessTechnologyEdge";
  device.application->enterBackground();
  device.application->enterForeground();
  EXPECT_NE(provider->networkInfo(), before);
  EXPECT_EQ(facts(), (Dictionary{{"carrierCode", "262-01"}, {"radioAccessTechnology", "Edge"}}));
  EXPECT_EQ(device.telephonyService.made, 2);
}

TEST_F(KXCarrierTest, KeepsWhatItHasWhenTelephonyIsGoneAtTheReturn) {
  const Dictionary before = facts();
  device.telephonyService.present = false;
  device.application->enterForeground();
  EXPECT_EQ(facts(), before);
}

TEST_F(KXCarrierTest, IgnoresTheEntryIntoTheBackground) {
  facts();
  device.application->enterBackground();
  device.advance(100);
  EXPECT_EQ(device.telephonyService.made, 1);
}

TEST_F(KXCarrierTest, IsPermittedAndUnmonitored) {
  EXPECT_TRUE(KXCarrier::sharedInstance()->hasPermissions());
  EXPECT_FALSE(KXCarrier::sharedInstance()->needsMonitoring());
}

}  // namespace
}  // namespace kx
