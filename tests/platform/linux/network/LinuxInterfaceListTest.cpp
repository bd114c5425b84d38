#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/network/LinuxInterfaceList.h"
#include "tests/platform/linux/network/NetworkNamespace.h"
#include "tests/platform/linux/network/RefusedSockets.h"

namespace kx {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

/// An interface's name, or that of one of its addresses, and an IPv4 address of it.
using Entry = std::pair<std::string, decltype(InterfaceAddress::bytesAfterPort)>;
using Entries = std::vector<Entry>;

/// Those of the C library's own list.
Entries systems() {
  ifaddrs *first = nullptr;
  if (::getifaddrs(&first) != 0) throw std::runtime_error("the system has no list");
  Entries entries;
  for (const ifaddrs *entry = first; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    Entry &listed = entries.emplace_back(entry->ifa_name, Entry::second_type{});
    std::memcpy(listed.second.data(), &reinterpret_cast<const sockaddr_in *>(entry->ifa_addr)->sin_addr, 4);
  }
  freeifaddrs(first);
  return entries;
}

Entries listed() {
  const auto list = LinuxInterfaceList().getifaddrs();
  EXPECT_THAT(list, Each(Field(&InterfaceAddress::family, AddressFamily::inet)));
  Entries entries;
  for (const InterfaceAddress &entry : list) entries.emplace_back(entry.name, entry.bytesAfterPort);
  return entries;
}

TEST(LinuxInterfaceListTest, OnThisMachineIsAsTheSystemsOwn) {
  EXPECT_THAT(listed(), Contains(Entry("lo", {127, 0, 0, 1})));
  EXPECT_EQ(listed(), systems());
}

class LinuxInterfaceListInNamespaceTest : public testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = NetworkNamespace::enter()) GTEST_SKIP() << *reason;
  }

  static void ip(const std::string &commands) { NetworkNamespace::ip(commands); }
  static void addLink(const std::string &name) { NetworkNamespace::addLink(name); }
};

TEST_F(LinuxInterfaceListInNamespaceTest, IsEmptyWhereNoInterfaceHasAnAddress) {
  EXPECT_THAT(listed(), IsEmpty());
  addLink("eth0");
  EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(LinuxInterfaceListInNamespaceTest, HasEveryAddressOfAnInterfaceByItsName) {
  addLink("eth0");
  ip("addr add 10.1.0.1/24 dev eth0\n"
     "addr add 10.1.0.2/24 dev eth0\n"  // of the same network
     "addr add 10.2.0.1/16 dev eth0\n"
     "addr add 10.1.0.3/24 dev eth0 label eth0:work\n"
     "addr add 127.0.0.1/8 dev lo");
  EXPECT_THAT(listed(), ElementsAre(Entry("lo", {127, 0, 0, 1}), Entry("eth0", {10, 1, 0, 1}),
                                    Entry("eth0", {10, 2, 0, 1}), Entry("eth0", {10, 1, 0, 2}),
                                    Entry("eth0:work", {10, 1, 0, 3})));
  EXPECT_EQ(listed(), systems());
}

TEST_F(LinuxInterfaceListInNamespaceTest, HasTheOwnAddressOfALinkBetweenTwo) {
  addLink("eth0");
  const TunnelInterface tunnel("tun0");
  ip("addr add 10.8.0.2 peer 10.8.0.1 dev tun0\naddr add 10.9.0.2 peer 10.9.0.1/32 dev eth0");
  EXPECT_THAT(listed(), ElementsAre(Entry("eth0", {10, 9, 0, 2}), Entry("tun0", {10, 8, 0, 2})));
  EXPECT_EQ(listed(), systems());
}

TEST_F(LinuxInterfaceListInNamespaceTest, HasTheAddressOfAnInterfaceThatIsDown) {
  addLink("eth0");
  addLink("eth1");
  ip("addr add 10.1.0.1/24 dev eth0\nlink set eth0 down\naddr add 10.2.0.1/24 dev eth1\nlink set eth1-far "
     "down");
  EXPECT_THAT(listed(), ElementsAre(Entry("eth0", {10, 1, 0, 1}), Entry("eth1", {10, 2, 0, 1})));
  EXPECT_EQ(listed(), systems());
}

TEST_F(LinuxInterfaceListInNamespaceTest, LeavesOutWhatIsNoIPv4) {
  addLink("eth0");
  addLink("eth1");
  ip("addr add fd00::1/64 dev eth0\naddr add fd00::2/64 dev eth1\naddr add 10.1.0.1/24 dev eth1");
  EXPECT_THAT(listed(), ElementsAre(Entry("eth1", {10, 1, 0, 1})));
  EXPECT_EQ(listed(), systems());
}

TEST_F(LinuxInterfaceListInNamespaceTest, HasAnInterfaceByTheNameThatItHasNow) {
  addLink("eth0");
  ip("addr add 10.1.0.1/24 dev eth0\naddr add 10.1.0.2/24 dev eth0 label eth0:1\n"
     "link set eth0 down\nlink set eth0 name wan0\nlink set wan0 up");
  EXPECT_THAT(listed(), ElementsAre(Entry("wan0", {10, 1, 0, 1}), Entry("wan0:1", {10, 1, 0, 2})));
  EXPECT_EQ(listed(), systems());
}

TEST_F(LinuxInterfaceListInNamespaceTest, HasInterfacesInTheSystemsOrder) {
  // Neither that of their numbers nor that in which they have come or been given addresses.
  ip("link add index 700 name c type veth peer index 900 name c-far\n"
     "link add index 300 name b type veth peer index 310 name b-far\n"
     "link add index 1500 name d type veth peer index 40 name a\n"
     "addr add 10.0.0.1/24 dev a\naddr add 10.0.1.1/24 dev d\naddr add 10.0.2.1/24 dev b\n"
     "addr add 10.0.3.1/24 dev c\naddr add 10.0.4.1/24 dev c-far\naddr add 10.0.5.1/24 dev b-far");
  EXPECT_THAT(listed(), SizeIs(6));
  EXPECT_EQ(listed(), systems());
}

TEST_F(LinuxInterfaceListInNamespaceTest, IsWholeHoweverLongItIs) {
  // The kernel gives some four kilobytes at a time, of 88 an address.
  std::string commands;
  constexpr int links = 5;
  constexpr int addresses = 200;
  for (int link = 0; link < links; ++link) {
    const std::string name = "eth" + std::to_string(link);
    addLink(name);
    for (int i = 0; i < addresses; ++i) {
      commands +=
          "addr add 10." + std::to_string(link) + '.' + std::to_string(i) + ".1/24 dev " + name + '\n';
    }
  }
  ip(commands);
  EXPECT_THAT(listed(), SizeIs(links * addresses));
  EXPECT_EQ(listed(), systems());
}

TEST(LinuxInterfaceListInSandboxTest, IsEmptyWhereTheKernelRefuses) {
  std::thread([] {
    if (!refuseSockets(AF_NETLINK, EPERM)) GTEST_SKIP() << "this machine cannot refuse sockets";
    EXPECT_THAT(listed(), IsEmpty());
  }).join();
}

}  // namespace
}  // namespace kx
