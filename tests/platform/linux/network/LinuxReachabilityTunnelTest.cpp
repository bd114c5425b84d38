#include <atomic>

#include "platform/linux/bus/GLibPointers.h"
#include "tests/platform/linux/network/ReachabilityTest.h"
#include "tests/platform/linux/network/StandInNetworkManager.h"
#include "tests/support/PrivateBus.h"

namespace kx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

/// Everything goes through a tunnel.
class LinuxReachabilityTunnelTest : public ReachabilityTest {
 protected:
  void SetUp() override {
    ReachabilityTest::SetUp();
    if (IsSkipped()) return;
    bus = std::make_unique<PrivateBus>();
    makeService();  // anew: it has read before where the bus is
    tunnel = std::make_unique<TunnelInterface>("tun0");
    ip("route add default dev tun0");
  }

  bool isAsked(const StandInNetworkManager &networkManager) {
    return thread.runUntil([&] {
      // Its thread wakes nobody here.
      g_timeout_add(
          10, [](gpointer) -> gboolean { return G_SOURCE_REMOVE; }, nullptr);
      return networkManager.asked() > 0;
    });
  }

  std::unique_ptr<PrivateBus> bus;
  std::unique_ptr<TunnelInterface> tunnel;
};

TEST_F(LinuxReachabilityTunnelTest, WithoutNetworkManagerATunnelIsNotCellular) {
  const auto reports = report(anywhere);
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  settle();
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  EXPECT_THAT(reports->flags, IsEmpty());
}

TEST_F(LinuxReachabilityTunnelTest, WithoutABusATunnelIsNotCellular) {
  bus->stop();
  const auto reports = report(anywhere);
  settle();
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  EXPECT_THAT(reports->flags, IsEmpty());
}

TEST_F(LinuxReachabilityTunnelTest, NetworkManagerTellsWhatIsBeneath) {
  StandInNetworkManager networkManager(*bus, "gsm");
  const auto reports = report(anywhere);
  EXPECT_THAT(flags(), Optional(flagsOfWifi)) << "it has not answered yet";
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  EXPECT_THAT(flags(), Optional(flagsOfCellular));
  networkManager.changeType(g_variant_new_string("802-11-wireless"));
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  networkManager.changeType(g_variant_new_string("cdma"));
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  EXPECT_THAT(reports->flags, ElementsAre(flagsOfCellular, flagsOfWifi, flagsOfCellular));
}

TEST_F(LinuxReachabilityTunnelTest, AContextThatTheHostHasMadeItsThreadsDefaultIsNoObstacle) {
  const ForeignContext context;
  StandInNetworkManager networkManager(*bus, "gsm");
  const auto reports = report(anywhere);
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  networkManager.changeType(g_variant_new_string("802-11-wireless"));
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
}

TEST_F(LinuxReachabilityTunnelTest, OfAFloodOfChangesTheLastOneWinsAndTheOthersAreNotLookedAt) {
  GLibPointer<GDBusConnection> connection;
  systemBus->observe([&connection](GDBusConnection *opened) { connection = retained(opened); });
  StandInNetworkManager networkManager(*bus, "gsm");
  const auto reports = report(anywhere);
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  ASSERT_NE(connection, nullptr);

  static std::atomic<int> arrived = 0;  // counted by the connection's thread, which outlives the test
  const guint counter = g_dbus_connection_add_filter(
      connection.get(),
      [](GDBusConnection *, GDBusMessage *message, gboolean, gpointer) {
        if (g_strcmp0(g_dbus_message_get_member(message), "PropertiesChanged") == 0) ++arrived;
        return message;
      },
      nullptr, nullptr);
  for (int i = 0; i < 500; ++i) {
    networkManager.changeType(g_variant_new_string("gsm"));
    networkManager.changeType(g_variant_new_string("802-11-wireless"));
  }
  // Nobody has run the loop, so that the changes wait for it, except perhaps the last, which is on its way.
  EXPECT_TRUE(eventually([] { return arrived == 1000; }));
  g_dbus_connection_remove_filter(connection.get(), counter);
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  settle();
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  EXPECT_THAT(reports->flags, ElementsAre(flagsOfCellular, flagsOfWifi));
}

TEST_F(LinuxReachabilityTunnelTest, ATunnelWithoutACarrierIsNotReachedWhateverIsBeneath) {
  const StandInNetworkManager networkManager(*bus, "gsm");
  const auto reports = report(anywhere);
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  tunnel.reset();
  EXPECT_TRUE(becomes(reports, flagsOfNone));
}

TEST_F(LinuxReachabilityTunnelTest, NetworkManagerMayAppearVanishAndReappear) {
  const auto reports = report(anywhere);
  settle();
  auto networkManager = std::make_unique<StandInNetworkManager>(*bus, "gsm");
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  networkManager.reset();
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  networkManager = std::make_unique<StandInNetworkManager>(*bus, "gsm");
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
}

TEST_F(LinuxReachabilityTunnelTest, TheBusMayEndAndComeBack) {
  auto networkManager = std::make_unique<StandInNetworkManager>(*bus, "gsm");
  const auto reports = report(anywhere);
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  bus->stop();
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  bus->start();
  networkManager = std::make_unique<StandInNetworkManager>(*bus, "gsm");
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
}

TEST_F(LinuxReachabilityTunnelTest, ANetworkManagerThatHangsIsAsGoodAsNone) {
  auto networkManager = std::make_unique<StandInNetworkManager>(*bus, nullptr);
  const auto reports = report(anywhere);
  EXPECT_TRUE(isAsked(*networkManager));
  settle();
  EXPECT_THAT(flags(), Optional(flagsOfWifi));
  EXPECT_THAT(reports->flags, IsEmpty());
  networkManager = nullptr;
  networkManager = std::make_unique<StandInNetworkManager>(*bus, "gsm");  // restarted
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  networkManager = nullptr;
  networkManager = std::make_unique<StandInNetworkManager>(*bus, nullptr);  // it hangs again
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
}

TEST_F(LinuxReachabilityTunnelTest, AnswersThatMakeNoSenseAreAsGoodAsNone) {
  const auto answers = {
      g_variant_new("(s)", "gsm"),
      g_variant_new("()"),
      g_variant_new("(v)", g_variant_new_uint32(2)),
      g_variant_new("(v)", g_variant_new_object_path("/gsm")),
      g_variant_new("(v)", g_variant_new_strv(nullptr, 0)),
  };
  const auto reports = report(anywhere);
  for (GVariant *const answer : answers) {
    const StandInNetworkManager networkManager(*bus, answer);
    EXPECT_TRUE(isAsked(networkManager));
    settle();
    EXPECT_THAT(flags(), Optional(flagsOfWifi));
  }
  EXPECT_THAT(reports->flags, IsEmpty());
}

TEST_F(LinuxReachabilityTunnelTest, AChangeThatMakesNoSenseEndsWhatWasKnown) {
  StandInNetworkManager networkManager(*bus, "gsm");
  const auto reports = report(anywhere);
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  networkManager.changeType(g_variant_new_uint32(2));
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
}

TEST_F(LinuxReachabilityTunnelTest, ConnectionsThatSayNothingAboutWhatIsBeneathAreAsGoodAsNone) {
  StandInNetworkManager networkManager(*bus, "gsm");
  const auto reports = report(anywhere);
  for (const char *const type : {"", "vpn", "wireguard", "tun"}) {
    networkManager.changeType(g_variant_new_string("gsm"));
    EXPECT_TRUE(becomes(reports, flagsOfCellular));
    networkManager.changeType(g_variant_new_string(type));
    EXPECT_TRUE(becomes(reports, flagsOfWifi)) << type;
  }
}

TEST_F(LinuxReachabilityTunnelTest, APointToPointLinkIsCellularUnlessNetworkManagerKnowsBetter) {
  const TunnelInterface link("ppp0", 512);
  ip("route replace default dev ppp0");
  const auto reports = report(anywhere);
  EXPECT_THAT(flags(), Optional(flagsOfCellular));
  StandInNetworkManager networkManager(*bus, "802-11-wireless");
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  networkManager.changeType(g_variant_new_string(""));
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
}

TEST_F(LinuxReachabilityTunnelTest, WhatIsBeneathShowsWhenOnlyIPv4GoesThroughTheTunnel) {
  addLink("rmnet0");
  ip("route add ::/0 dev rmnet0");
  EXPECT_THAT(flags(), Optional(flagsOfCellular));
}

TEST_F(LinuxReachabilityTunnelTest, NetworkManagerIsNotAskedWithoutATunnel) {
  addLink("rmnet0");
  ip("route replace default dev rmnet0");
  const StandInNetworkManager networkManager(*bus, "802-11-wireless");
  const auto reports = report(anywhere);
  settle();
  EXPECT_EQ(networkManager.asked(), 0);
  EXPECT_THAT(flags(), Optional(flagsOfCellular));
  ip("route replace default dev tun0");
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  EXPECT_TRUE(isAsked(networkManager));
}

TEST_F(LinuxReachabilityTunnelTest, NetworkManagerIsFollowedOnlyWhileAHandleIsScheduledBehindATunnel) {
  const StandInNetworkManager networkManager(*bus, "gsm");
  auto reports = report(anywhere);
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  EXPECT_TRUE(unschedule(anywhere));
  EXPECT_TRUE(thread.runUntil([this] { return flags() == flagsOfWifi; })) << "it follows it still";
  EXPECT_THAT(reports->flags, ElementsAre(flagsOfCellular));

  reports = report(anywhere);
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
  addLink("eth0");
  ip("route replace default dev eth0");
  EXPECT_TRUE(becomes(reports, flagsOfWifi));
  settle();
  ip("route replace default dev tun0");
  EXPECT_THAT(flags(), Optional(flagsOfWifi)) << "it has followed it meanwhile";
  EXPECT_TRUE(becomes(reports, flagsOfCellular));
}

TEST_F(LinuxReachabilityTunnelTest, TheServiceMayGoWhileNetworkManagerIsBeingAsked) {
  for (int i = 0; i < 20; ++i) {
    report(anywhere);
    for (int turns = 0; turns < i; ++turns) g_main_context_iteration(nullptr, FALSE);
    makeService();
  }
  const StandInNetworkManager networkManager(*bus, "gsm");
  EXPECT_TRUE(becomes(report(anywhere), flagsOfCellular));
}

}  // namespace
}  // namespace kx
