#include <string>
#include <vector>

#include "KXPublisher/transport/KXNetworking.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

using Addresses = std::vector<std::string>;

class KXNetworkingAddressesTest : public SimulatedTest {
 protected:
  Addresses addresses(std::vector<InterfaceAddress> entries) {
    device.interfaces.entries = std::move(entries);
    return KXNetworking::getIPAddresses();
  }
};

TEST_F(KXNetworkingAddressesTest, ListsWiFiAndCellularInTheSystemsOrder) {
  const InterfaceAddress wifi{"en0", AddressFamily::inet, {192, 168, 1, 20}};
  const InterfaceAddress cellular{"pdp_ip0", AddressFamily::inet, {10, 0, 0, 5}};
  EXPECT_EQ(addresses({wifi, cellular}), (Addresses{"192.168.1.20", "10.0.0.5"}));
  EXPECT_EQ(addresses({cellular, wifi}), (Addresses{"10.0.0.5", "192.168.1.20"}));
}

TEST_F(KXNetworkingAddressesTest, ListsTunnels) {
  EXPECT_EQ(addresses({{"ipsec0", AddressFamily::inet, {255, 254, 253, 252}}}),
            (Addresses{"255.254.253.252"}));
}

TEST_F(KXNetworkingAddressesTest, LeavesOutOtherInterfaces) {
  EXPECT_TRUE(addresses({{"lo0", AddressFamily::inet, {127, 0, 0, 1}},
                         {"awdl0", AddressFamily::inet, {10, 1, 1, 1}},
                         {"EN0", AddressFamily::inet, {10, 1, 1, 2}},
                         {"xen0", AddressFamily::inet, {10, 1, 1, 3}},
                         {"e", AddressFamily::inet, {10, 1, 1, 4}},
                         {"", AddressFamily::inet, {10, 1, 1, 5}}})
                  .empty());
}

TEST_F(KXNetworkingAddressesTest, TakesAnyInterfaceWhoseNameBeginsSo) {
  EXPECT_EQ(
      addresses({{"en", AddressFamily::inet, {10, 0, 0, 1}}, {"enp3s0", AddressFamily::inet, {10, 0, 0, 2}}}),
      (Addresses{"10.0.0.1", "10.0.0.2"}));
}

TEST_F(KXNetworkingAddressesTest, NeverListsIPv6) {
  EXPECT_TRUE(addresses({{"en0", AddressFamily::inet6, {0, 0, 0, 0}}}).empty());
}

TEST_F(KXNetworkingAddressesTest, ReadsTheFlowInformationOfAnIPv6EntryAsItIs) {
  EXPECT_EQ(addresses({{"en0", AddressFamily::inet6, {0, 1, 2, 3}}}), (Addresses{"0.1.2.3"}));
}

TEST_F(KXNetworkingAddressesTest, LeavesOutEntriesOfOtherFamilies) {
  EXPECT_TRUE(addresses({{"en0", AddressFamily::other, {1, 2, 3, 4}}}).empty());
}

TEST_F(KXNetworkingAddressesTest, LeavesOutTheZeroAddress) {
  EXPECT_TRUE(addresses({{"en0", AddressFamily::inet, {0, 0, 0, 0}}}).empty());
}

TEST_F(KXNetworkingAddressesTest, KeepsDuplicates) {
  const InterfaceAddress entry{"en0", AddressFamily::inet, {10, 0, 0, 1}};
  EXPECT_EQ(addresses({entry, entry}), (Addresses{"10.0.0.1", "10.0.0.1"}));
}

TEST_F(KXNetworkingAddressesTest, IsEmptyWithoutANetwork) {
  EXPECT_TRUE(addresses({}).empty());
}

}  // namespace
}  // namespace kx
