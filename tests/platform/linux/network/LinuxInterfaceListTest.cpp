#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>

#include <string>
#include <vector>

#include "platform/linux/facts/LinuxSystemCalls.h"
#include "tests/platform/linux/network/NetworkNamespace.h"

namespace kx {
namespace {

/// Of which families the records are that an interface has in the list.
std::vector<AddressFamily> familiesOf(const std::string &interface) {
  std::vector<AddressFamily> families;
  for (const InterfaceAddress &entry : LinuxInterfaceList().getifaddrs()) {
    if (entry.name == interface) families.push_back(entry.family);
  }
  return families;
}

/// Whether the system lists a record of the interface that has no address at all.
bool hasRecordWithoutAddress(const std::string &interface) {
  ifaddrs *first = nullptr;
  if (::getifaddrs(&first) != 0) return false;
  bool found = false;
  for (const ifaddrs *entry = first; entry != nullptr; entry = entry->ifa_next) {
    found = found || (entry->ifa_name == interface && entry->ifa_addr == nullptr);
  }
  freeifaddrs(first);
  return found;
}

TEST(LinuxInterfaceListTest, LeavesOutARecordThatHasNoAddressAtAll) {
  if (const auto reason = NetworkNamespace::enter()) GTEST_SKIP() << *reason;
  NetworkNamespace::addLink("eth0");
  const TunnelInterface tunnel("tun0");
  ASSERT_TRUE(hasRecordWithoutAddress("tun0")) << "the system does not do what this test is about";
  NetworkNamespace::ip("addr add 10.8.0.2/24 dev tun0");
  EXPECT_THAT(familiesOf("eth0"), testing::Contains(AddressFamily::other));
  EXPECT_THAT(familiesOf("tun0"), testing::Not(testing::Contains(AddressFamily::other)));
  EXPECT_THAT(familiesOf("tun0"), testing::Contains(AddressFamily::inet));
}

}  // namespace
}  // namespace kx
