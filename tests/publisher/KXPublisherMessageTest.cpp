#include <KXPublisher/KXPublisher.hpp>
#include <limits>
#include <set>

#include "KXPublisher/providers/KXAsn.h"
#include "KXPublisher/providers/KXCarrier.h"
#include "KXPublisher/providers/KXConnection.h"
#include "KXPublisher/providers/KXDevice.h"
#include "KXPublisher/providers/KXLocation.h"
#include "tests/providers/TestProvider.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

class KXPublisherMessageTest : public SimulatedTest {
 protected:
  std::shared_ptr<KXPublisher> publisher = KXPublisher::sharedInstanceWithApiToken("token", "svc");

  /// A provider with these facts.
  std::shared_ptr<KXData> providerOf(const Dictionary &facts) {
    const auto provider = TestProvider::make();
    provider->permitted = false;
    provider->updateData(std::make_shared<MutableDictionary>(facts));
    device.runReadyTasks();
    return provider;
  }
  static std::set<std::string> keys(const Dictionary &message) {
    std::set<std::string> found;
    for (const auto &entry : message) found.insert(entry.key);
    return found;
  }
  const std::set<std::string> publisherKeys{"sdkName", "sdkVer", "ips", "id", "eventTime"};
};

TEST_F(KXPublisherMessageTest, MergesTheFactsOfAllProviders) {
  device.locationService.position = Location{{52.52, 13.405}, 12.5, 34.0, 3.0};
  device.locationService.placemarks = {Placemark{"DE", "Berlin", "Berlin", "10115", 7200}};
  device.locationService.changeAuthorization(AuthorizationStatus::authorizedAlways);
  device.advance(1);
  EXPECT_EQ(keys(publisher->data()), (std::set<std::string>{"deviceCategory",
                                                            "make",
                                                            "model",
                                                            "platform",
                                                            "osVersion",
                                                            "name",
                                                            "userAgent",
                                                            "ifa",
                                                            "dnt",
                                                            "languages",
                                                            "carrierCode",
                                                            "radioAccessTechnology",
                                                            "lat",
                                                            "lon",
                                                            "horizontalAccuracy",
                                                            "altitude",
                                                            "verticalAccuracy",
                                                            "country",
                                                            "state",
                                                            "city",
                                                            "zip",
                                                            "tzOffset",
                                                            "connectionType",
                                                            "bundleId",
                                                            "asn",
                                                            "sdkName",
                                                            "sdkVer",
                                                            "ips",
                                                            "id",
                                                            "eventTime"}));
}

TEST_F(KXPublisherMessageTest, HoldsThePublishersOwnKeysWhateverTheProvidersKnow) {
  publisher->setDataProviders({TestProvider::make()});  // not computed yet
  const Dictionary message = publisher->data();
  EXPECT_EQ(keys(message), publisherKeys);
  EXPECT_EQ(*message.find("sdkName"), Value("KXPublisher iOS"));
  EXPECT_EQ(*message.find("sdkVer"), Value("v1.0"));
  EXPECT_EQ(*message.find("ips"), Value(Array{"192.168.1.20"}));
  EXPECT_NE(message.find("id")->text(), nullptr);
}

TEST_F(KXPublisherMessageTest, IsDroppedWithoutALineWhenItHoldsThePublishersOwnKeysOnly) {
  device.advance(1);                                    // the login succeeds
  publisher->setDataProviders({TestProvider::make()});  // not computed yet
  publisher->logDataAsync(false);
  EXPECT_TRUE(device.service.messages().empty());
  EXPECT_TRUE(device.consoleService.lines.empty());
  publisher->setDataProviders({providerOf({{"ifa", "identifier"}})});
  publisher->logDataAsync(false);
  EXPECT_EQ(device.service.messages().size(), 1u) << "nothing is sent at all";
}

TEST_F(KXPublisherMessageTest, LetsThePublishersKeysWinOverAProviders) {
  publisher->setDataProviders({providerOf({{"id", "mine"},
                                           {"eventTime", 1},
                                           {"sdkName", "mine"},
                                           {"sdkVer", "mine"},
                                           {"ips", "mine"},
                                           {"kept", true}})});
  const Dictionary message = publisher->data();
  for (const char *key : {"id", "sdkName", "sdkVer", "ips"})
    EXPECT_NE(*message.find(key), Value("mine")) << key;
  EXPECT_EQ(*message.find("eventTime"), Value(1700000000000));
  EXPECT_EQ(*message.find("kept"), Value(true));
}

TEST_F(KXPublisherMessageTest, LetsALaterProviderWin) {
  publisher->setDataProviders(
      {providerOf({{"a", 1}, {"b", 1}}), providerOf({{"b", 2}, {"c", 2}}), providerOf({{"c", 3}})});
  const Dictionary message = publisher->data();
  EXPECT_EQ(*message.find("a"), Value(1));
  EXPECT_EQ(*message.find("b"), Value(2));
  EXPECT_EQ(*message.find("c"), Value(3));
}

TEST_F(KXPublisherMessageTest, MergesTheProvidersInTheirFixedOrder) {
  EXPECT_EQ(publisher->dataProviders(),
            (std::vector<std::shared_ptr<KXData>>{KXDevice::sharedInstance(), KXCarrier::sharedInstance(),
                                                  KXLocation::sharedInstance(),
                                                  KXConnection::sharedInstance(), KXAsn::sharedInstance()}));
  device.runReadyTasks();
  for (const auto &provider : publisher->dataProviders()) {
    provider->updateData(std::make_shared<MutableDictionary>(Dictionary{{"last", provider->description()}}));
  }
  device.runReadyTasks();
  EXPECT_EQ(*publisher->data().find("last"), Value(KXAsn::sharedInstance()->description()));
  KXAsn::sharedInstance()->resetData();
  device.runReadyTasks();
  EXPECT_EQ(*publisher->data().find("last"), Value(KXConnection::sharedInstance()->description()));
}

TEST_F(KXPublisherMessageTest, DropsTheFractionOfASecondFromTheEventTime) {
  device.clockService.atSwitchOn = 1700000000.999;
  EXPECT_EQ(*publisher->data().find("eventTime"), Value(1700000000000));
}

TEST_F(KXPublisherMessageTest, TruncatesTimesBefore1970TowardsZero) {
  device.clockService.atSwitchOn = -1.5;
  EXPECT_EQ(*publisher->data().find("eventTime"), Value(-1000));
}

TEST_F(KXPublisherMessageTest, KeepsEventTimesBeyondThirtyTwoBits) {
  device.clockService.atSwitchOn = 4102444800.25;  // the year 2100
  EXPECT_EQ(*publisher->data().find("eventTime"), Value(4102444800000));
}

TEST_F(KXPublisherMessageTest, GivesEveryMessageAnIdentifierOfItsOwn) {
  const Dictionary first = publisher->data();
  const Dictionary second = publisher->data();
  EXPECT_NE(*first.find("id"), *second.find("id"));
  EXPECT_EQ(*first.find("eventTime"), *second.find("eventTime"));
}

TEST_F(KXPublisherMessageTest, HasAnEmptyListOfAddressesWithoutANetwork) {
  device.interfaces.entries.clear();
  EXPECT_EQ(*publisher->data().find("ips"), Value(Array()));
  device.advance(6);
  ASSERT_FALSE(device.service.messages().empty());
  EXPECT_THAT(device.service.messages().back().text().value_or(""), ::testing::HasSubstr("\"ips\":[],"));
}

TEST_F(KXPublisherMessageTest, ReadsProvidersAndAddressesAnewForEachMessage) {
  device.advance(1);
  publisher->data();
  device.interfaces.entries = {{"en1", AddressFamily::inet, {10, 0, 0, 9}}};
  device.reachability.changeFlags(0);
  device.runReadyTasks();
  const Dictionary message = publisher->data();
  EXPECT_EQ(*message.find("ips"), Value(Array{"10.0.0.9"}));
  EXPECT_EQ(message.find("connectionType"), nullptr);
}

TEST_F(KXPublisherMessageTest, KeepsWhatItCopiedWhenTheProviderMovesOn) {
  device.advance(1);
  const Dictionary message = publisher->data();
  KXAsn::sharedInstance()->resetData();
  device.runReadyTasks();
  EXPECT_EQ(*message.find("asn"), Value("Host"));
}

TEST_F(KXPublisherMessageTest, DescribesAFreshMessage) {
  device.advance(1);
  const std::string before = publisher->description();
  const std::string after = publisher->description();
  EXPECT_THAT(before, ::testing::HasSubstr("\"sdkName\":\"KXPublisher iOS\""));
  EXPECT_THAT(before, ::testing::HasSubstr("\"asn\":\"Host\""));
  EXPECT_NE(before, after);  // another identifier
}

TEST_F(KXPublisherMessageTest, SurvivesClockReadingsThatNoIntegerHolds) {
  for (const double reading :
       {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN(), 1e300}) {
    device.clockService.atSwitchOn = reading;
    EXPECT_NE(publisher->data().find("eventTime")->integer(), nullptr);
  }
}

}  // namespace
}  // namespace kx
