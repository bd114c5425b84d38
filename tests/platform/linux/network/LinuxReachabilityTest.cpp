#include <net/if.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <thread>

#include "platform/linux/network/LinuxReachability.h"
#include "tests/platform/linux/network/ReachabilityTest.h"
#include "tests/platform/linux/network/RefusedSockets.h"

namespace kx {
namespace {

using testing::Optional;

class LinuxReachabilityTest : public ReachabilityTest {};

TEST_F(LinuxReachabilityTest, WithoutARouteNothingIsReached) {
  EXPECT_THAT(flags(), Optional(flagsOfNone));
  addLink("eth0");
  EXPECT_THAT(flags(), Optional(flagsOfNone));
}

TEST_F(LinuxReachabilityTest, ADefaultRouteReachesAsLongAsItsLinkCanCarryTraffic) {
  addLink("eth0");
  ip("route add default dev eth0");
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  ip("link set eth0-far down");  // the cable is pulled
  EXPECT_TRUE(become(flagsOfNone));
  ip("link set eth0-far up");
  EXPECT_TRUE(become(flagsOfWifi));
  ip("link set eth0 down");
  EXPECT_THAT(flags(), Optional(flagsOfNone));
}

TEST_F(LinuxReachabilityTest, ARouteByIPv6AloneReaches) {
  addLink("eth0");
  ip("route add ::/0 dev eth0");
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  ip("route del ::/0 dev eth0");
  EXPECT_THAT(flags(), Optional(flagsOfNone));
}

TEST_F(LinuxReachabilityTest, IPv6ReachesWhereTheLinkOfIPv4IsBroken) {
  addLink("eth0");
  addLink("rmnet0");
  ip("route add default dev eth0\nroute add ::/0 dev rmnet0\nlink set eth0-far down");
  EXPECT_TRUE(become(flagsOfCellular));
}

TEST_F(LinuxReachabilityTest, ANetworkThatLeadsNowhereElseIsNotAnyRoute) {
  addLink("eth0");
  ip("addr add 10.1.2.3/24 dev eth0");
  EXPECT_THAT(flags(), Optional(flagsOfNone));
}

TEST_F(LinuxReachabilityTest, ARouteThatRefusesDoesNotReach) {
  for (const std::string kind : {"unreachable", "blackhole", "prohibit"}) {
    ip("route add " + kind + " default\nroute add " + kind + " ::/0 metric 1");
    EXPECT_THAT(flags(), Optional(flagsOfNone)) << kind;
    ip("route del " + kind + " default\nroute del " + kind + " ::/0 metric 1");
  }
}

TEST_F(LinuxReachabilityTest, OfTwoRoutesTheOneThatTheKernelTakesCounts) {
  addLink("wlan0");
  addLink("rmnet0");
  ip("route add default dev rmnet0 metric 700\nroute add default dev wlan0 metric 600");
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  ip("route del default dev wlan0 metric 600");
  EXPECT_THAT(flags(), Optional(flagsOfCellular));
}

TEST_F(LinuxReachabilityTest, RulesThatChooseAnotherTableCount) {
  addLink("wlan0");
  addLink("rmnet0");
  ip("route add default dev wlan0\nroute add default dev rmnet0 table 51\nrule add pref 100 table 51");
  EXPECT_THAT(flags(), Optional(flagsOfCellular));
}

// ---- What is cellular

TEST_F(LinuxReachabilityTest, AnInterfaceThatTheKernelCallsWWANIsCellular) {
  addLink("wwp0s20");
  ip("route add default dev wwp0s20");
  const std::string index = std::to_string(if_nametoindex("wwp0s20"));
  {
    const StandInUevent uevent("wwp0s20", "DEVTYPE=wwan\nINTERFACE=wwp0s20\nIFINDEX=" + index + "\n");
    EXPECT_THAT(flags(), Optional(flagsOfCellular));
  }
  const StandInUevent uevent("wwp0s20", "DEVTYPE=wlan\nINTERFACE=wwp0s20\nIFINDEX=" + index + "\n");
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
}

TEST_F(LinuxReachabilityTest, AModemThatLooksLikeATunnelIsCellular) {
  const TunnelInterface modem("wwan0");
  ip("route add default dev wwan0");
  const std::string index = std::to_string(if_nametoindex("wwan0"));
  const StandInUevent uevent("wwan0", "IFINDEX=" + index + "\nDEVTYPE=wwan");
  EXPECT_THAT(flags(), Optional(flagsOfCellular));
}

TEST_F(LinuxReachabilityTest, AnInterfaceOfThatNameInAnotherNetworkDoesNotCount) {
  addLink("eth0");
  ip("route add default dev eth0");
  const std::string other = std::to_string(if_nametoindex("eth0") + 100);
  const StandInUevent uevent("eth0", "DEVTYPE=wwan\nINTERFACE=eth0\nIFINDEX=" + other + "\n");
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
}

TEST_F(LinuxReachabilityTest, DevicesThatCarryBareIPOrPPPAreCellular) {
  for (const int type : {519, 512}) {
    const TunnelInterface modem("usb0", type);
    ip("route add default dev usb0");
    EXPECT_THAT(flags(), Optional(flagsOfCellular)) << type;
  }
}

TEST_F(LinuxReachabilityTest, TheNamesThatAndroidsModemDriversGiveAreCellular) {
  for (const std::string name : {"rmnet_data0", "rmnet0", "ccmni1", "xrmnet0", "eth0"}) {
    const bool isCellular = name[0] == 'r' || name[0] == 'c';
    addLink(name);
    ip("route add default dev " + name);
    EXPECT_THAT(flags(), Optional(isCellular ? flagsOfCellular : flagsOfWifi)) << name;
    ip("link del " + name);
  }
}

// ---- Addresses

TEST_F(LinuxReachabilityTest, AnAddressIsReachedByItsOwnRoute) {
  addLink("eth0");
  ip("link set lo up\naddr add 10.1.2.3/24 dev eth0");
  const auto flagsTo = [this](const SocketAddress &address) {
    return service->getFlags(service->createWithAddress(address));
  };
  EXPECT_THAT(flagsTo(address(10, 1, 2, 9)), Optional(flagsOfWifi));
  EXPECT_THAT(flagsTo(address(10, 1, 2, 3)), Optional(flagsOfWifi)) << "this device's own";
  EXPECT_THAT(flagsTo(address(10, 1, 3, 9)), Optional(flagsOfNone));
}

TEST_F(LinuxReachabilityTest, ThereIsNoHandleForWhatIsNoIPv4Address) {
  SocketAddress other = address(0, 0, 0, 0);
  other[1] = 10;
  EXPECT_EQ(service->createWithAddress(other), nullptr);
  other = address(0, 0, 0, 0);
  other[0] = 0;
  EXPECT_EQ(service->createWithAddress(other), nullptr);
}

TEST_F(LinuxReachabilityTest, EveryOperationRefusesANullHandle) {
  EXPECT_EQ(service->getFlags(nullptr), std::nullopt);
  EXPECT_FALSE(service->setCallback(nullptr, &Reports::add, {}));
  EXPECT_FALSE(service->scheduleWithRunLoop(nullptr, mainRunLoop, RunLoopMode::defaultMode));
  EXPECT_FALSE(service->unscheduleFromRunLoop(nullptr, mainRunLoop, RunLoopMode::defaultMode));
}

// ---- A kernel that refuses

TEST_F(LinuxReachabilityTest, TheFlagsAreAbsentWhereNetlinkIsRefused) {
  addLink("eth0");
  ip("route add default dev eth0");
  std::thread([this] {
    ASSERT_TRUE(refuseSockets(AF_NETLINK, EPERM));
    EXPECT_EQ(flags(), std::nullopt);
    EXPECT_FALSE(service->scheduleWithRunLoop(anywhere, mainRunLoop, RunLoopMode::defaultMode));
    EXPECT_FALSE(service->unscheduleFromRunLoop(anywhere, mainRunLoop, RunLoopMode::defaultMode));
  }).join();
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
}

TEST_F(LinuxReachabilityTest, TheFlagsAreAbsentWhereTheProcessHasTooManyFilesOpen) {
  addLink("eth0");
  ip("route add default dev eth0");
  std::thread([this] {
    ASSERT_TRUE(refuseSockets(AF_UNIX, EMFILE));
    EXPECT_EQ(flags(), std::nullopt);
  }).join();
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
}

TEST_F(LinuxReachabilityTest, AnyThreadsMayAskAtTheSameTime) {
  addLink("eth0");
  ip("route add default dev eth0");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] {
      for (int j = 0; j < 200; ++j) ASSERT_THAT(flags(), Optional(flagsOfWifi));
    });
  }
  for (std::thread &other : threads) other.join();
}

}  // namespace
}  // namespace kx
