#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/collector/ServerNames.h"

namespace kx::collector {
namespace {

using boost::asio::ip::make_address;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Not;

std::vector<std::string> namesOn(const std::string &address) {
  return serverNames(make_address(address), "desk.local",
                     {make_address("127.0.0.1"), make_address("192.0.2.7"), make_address("2001:db8::7")});
}

TEST(ServerNamesTest, OnLoopbackAreThisMachinesOwn) {
  EXPECT_THAT(namesOn("127.0.0.1"), ElementsAre("localhost", "127.0.0.1", "::1"));
  EXPECT_THAT(namesOn("::1"), ElementsAre("localhost", "127.0.0.1", "::1"));
  EXPECT_THAT(namesOn("127.0.0.5"), ElementsAre("localhost", "127.0.0.1", "::1", "127.0.0.5"));
}

TEST(ServerNamesTest, OnOneAddressHoldItAndTheHostName) {
  EXPECT_THAT(namesOn("192.0.2.7"), ElementsAre("localhost", "127.0.0.1", "::1", "desk.local", "192.0.2.7"));
}

// A phone on the same network calls the collector by whichever of them its developer wrote down.
TEST(ServerNamesTest, OnEveryAddressHoldThoseOfTheInterfaces) {
  for (const std::string every : {"0.0.0.0", "::"}) {
    EXPECT_THAT(namesOn(every),
                ElementsAre("localhost", "127.0.0.1", "::1", "desk.local", "192.0.2.7", "2001:db8::7"));
  }
}

TEST(ServerNamesTest, LeaveOutAHostNameThatIsNotThere) {
  EXPECT_THAT(serverNames(make_address("192.0.2.7"), "", {}), Not(Contains("")));
}

std::vector<std::string> callable(const std::string &address, const std::string &outward = "192.0.2.7") {
  const auto own = {make_address("127.0.0.1"), make_address("10.0.0.7"), make_address("192.0.2.7"),
                    make_address("2001:db8::7"), make_address("::1")};
  std::vector<std::string> texts;
  for (const auto &found : callableAddresses(make_address(address), own, make_address(outward))) {
    texts.push_back(found.to_string());
  }
  return texts;
}

TEST(CallableAddressesTest, OfOneAddressAreThatOne) {
  EXPECT_THAT(callable("127.0.0.1"), ElementsAre("127.0.0.1"));
  EXPECT_THAT(callable("10.0.0.7"), ElementsAre("10.0.0.7"));
}

TEST(CallableAddressesTest, OfEveryAddressBeginWithTheOneThatOthersSee) {
  EXPECT_THAT(callable("0.0.0.0"), ElementsAre("192.0.2.7", "10.0.0.7", "127.0.0.1"));
  EXPECT_THAT(callable("::"), ElementsAre("192.0.2.7", "10.0.0.7", "2001:db8::7", "127.0.0.1"));
}

TEST(CallableAddressesTest, AreThereWithoutAWayToOthers) {
  EXPECT_THAT(callable("0.0.0.0", "0.0.0.0"), ElementsAre("10.0.0.7", "192.0.2.7", "127.0.0.1"));
  EXPECT_EQ(callableAddresses(make_address("0.0.0.0"), {}, {}).front(), make_address("127.0.0.1"));
}

TEST(OutwardAddressTest, IsOneOfTheInterfacesIfThereIsAny) {
  const auto outward = outwardAddress();
  if (outward.is_unspecified()) GTEST_SKIP() << "only loopback is there";
  EXPECT_THAT(interfaceAddresses(), Contains(outward));
}

TEST(InterfaceAddressesTest, HoldLoopbackAndNoneThatNeedsAZone) {
  EXPECT_THAT(interfaceAddresses(), Contains(make_address("127.0.0.1")));
  EXPECT_THAT(interfaceAddresses(), Each(::testing::Truly([](const auto &address) {
                return !address.is_unspecified() && (address.is_v4() || !address.to_v6().is_link_local());
              })));
}

}  // namespace
}  // namespace kx::collector
