// The interfaces' addresses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <sys/socket.h>

#include <array>
#include <string>
#include <vector>

#include "KXPublisher/platform/InterfaceList.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Bytes = std::array<std::uint8_t, 4>;

std::vector<InterfaceAddress> listed() {
  return Platform::current().interfaceList().getifaddrs();
}

TEST(AppleInterfaceList, IsTheSystems) {
  std::vector<std::string> names;
  ifaddrs *first = nullptr;
  ASSERT_EQ(getifaddrs(&first), 0);
  for (const ifaddrs *entry = first; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr != nullptr) names.emplace_back(entry->ifa_name);
  }
  freeifaddrs(first);
  std::vector<std::string> listed;
  bool hasLoopback = false;
  for (const InterfaceAddress &address : Platform::current().interfaceList().getifaddrs()) {
    listed.push_back(address.name);
    hasLoopback = hasLoopback || (address.family == AddressFamily::inet &&
                                  address.bytesAfterPort == std::array<std::uint8_t, 4>{127, 0, 0, 1});
  }
  EXPECT_EQ(listed, names);
  EXPECT_TRUE(hasLoopback);
}

TEST(AppleInterfaceList, TellsOfEachAddressWhatKindItIs) {
  standin::interfaces().entries = {
      {"en0", AF_INET, {192, 168, 1, 2}}, {"en0", AF_INET6, {1, 2, 3, 4}}, {"en0", AF_PACKET, {5, 6, 7, 8}}};
  const auto addresses = listed();
  ASSERT_EQ(addresses.size(), 3u);
  EXPECT_EQ(addresses[0].family, AddressFamily::inet);
  EXPECT_EQ(addresses[0].bytesAfterPort, (Bytes{192, 168, 1, 2}));
  EXPECT_EQ(addresses[1].family, AddressFamily::inet6);
  EXPECT_EQ(addresses[1].bytesAfterPort, (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(addresses[2].family, AddressFamily::other);
  EXPECT_EQ(addresses[2].bytesAfterPort, Bytes{});
  for (const auto &address : addresses) EXPECT_EQ(address.name, "en0");
}

TEST(AppleInterfaceList, LeavesOutWhatHasNoAddressOrNoName) {
  standin::interfaces().entries = {{"en0", AF_UNSPEC},
                                   {nullptr, AF_INET, {10, 0, 0, 1}},
                                   {"en\xE4", AF_INET, {10, 0, 0, 2}},
                                   {"pdp_ip0", AF_INET, {10, 0, 0, 3}}};
  const auto addresses = listed();
  ASSERT_EQ(addresses.size(), 1u);
  EXPECT_EQ(addresses[0].name, "pdp_ip0");
}

TEST(AppleInterfaceList, IsEmptyWhereItCannotBeRead) {
  standin::interfaces().canBeRead = false;
  EXPECT_THAT(listed(), IsEmpty());
}

TEST(AppleInterfaceList, IsFreed) {
  standin::interfaces().entries = {{"en0", AF_INET, {192, 168, 1, 2}}};
  listed();
  EXPECT_EQ(standin::openInterfaceLists(), 0);
}

TEST(AppleInterfaceList, GivesMessagesTheirIPv4AddressesOnly) {
  standin::interfaces().entries = {{"en0", AF_UNSPEC},
                                   {"en0", AF_INET6},
                                   {"en0", AF_INET, {192, 168, 1, 2}},
                                   {"lo0", AF_INET, {127, 0, 0, 1}},
                                   {"pdp_ip0", AF_INET, {10, 0, 0, 3}}};
  EXPECT_THAT(KXNetworking::getIPAddresses(), ElementsAre("192.168.1.2", "10.0.0.3"));
}

}  // namespace
}  // namespace kx
