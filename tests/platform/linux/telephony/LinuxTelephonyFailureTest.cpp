#include "tests/platform/linux/telephony/FakeModemManager.h"
#include "tests/platform/linux/telephony/TelephonyTest.h"

namespace kx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t lte = MM_MODEM_ACCESS_TECHNOLOGY_LTE;
constexpr std::uint32_t umts = MM_MODEM_ACCESS_TECHNOLOGY_UMTS;
constexpr const char *readAll = "GetManagedObjects";
constexpr const char *readSim = "Get";

/// With a service that is not there yet.
class LinuxTelephonyFailureTest : public TelephonyTest {
 protected:
  explicit LinuxTelephonyFailureTest(ModemManagerClient::Intervals intervals = {})
      : TelephonyTest(intervals) {
    service.setOperatorIdentifier(0, "26201");
    service.addModem(0, 0, lte);
  }

  /// Has the adapter connected to the bus.
  bool connects() {
    bool connected = false;
    systemBus->observe([&connected](GDBusConnection *connection) { connected = connection != nullptr; });
    return thread.runUntil([&connected] { return connected; });
  }

  FakeModemManager service{bus};
};

// ---- The service comes and goes

TEST_F(LinuxTelephonyFailureTest, FindsAServiceThatAppearsLater) {
  begin();
  ASSERT_TRUE(connects());
  EXPECT_EQ(code(), "none");
  EXPECT_EQ(technology(), "none");
  EXPECT_THAT(reported, IsEmpty());
  service.start();
  ASSERT_TRUE(codeBecomes("262-01"));
  EXPECT_EQ(technology(), "LTE");
  EXPECT_THAT(reported, ElementsAre("262-01"));
}

TEST_F(LinuxTelephonyFailureTest, AContextThatTheHostHasMadeItsThreadsDefaultIsNoObstacle) {
  const ForeignContext context;
  begin();
  ASSERT_TRUE(connects());
  service.start();
  ASSERT_TRUE(codeBecomes("262-01"));
  service.setState(0, MM_MODEM_STATE_SEARCHING);
  ASSERT_TRUE(technologyBecomes("none"));
  service.stop();
  ASSERT_TRUE(codeBecomes("none"));
}

TEST_F(LinuxTelephonyFailureTest, KnowsNothingWhileTheServiceIsAway) {
  service.start();
  begin();
  ASSERT_TRUE(codeBecomes("262-01"));
  service.stop();
  ASSERT_TRUE(codeBecomes("none"));
  EXPECT_EQ(technology(), "none");
  service.setOperatorIdentifier(0, "310410");
  service.start();
  ASSERT_TRUE(codeBecomes("310-410"));
  EXPECT_EQ(technology(), "LTE");
  EXPECT_THAT(reported, ElementsAre("262-01", "none", "310-410"));
}

TEST_F(LinuxTelephonyFailureTest, SurvivesRestartsInARow) {
  service.start();
  begin();
  ASSERT_TRUE(codeBecomes("262-01"));
  for (int i = 0; i < 20; ++i) {
    service.stop();
    service.start();
  }
  service.setOperatorIdentifier(0, "310410");
  EXPECT_TRUE(codeBecomes("310-410"));
}

TEST_F(LinuxTelephonyFailureTest, ListensToTheServiceAloneAndNotToOthers) {
  service.start();
  begin();
  ASSERT_TRUE(codeBecomes("262-01"));
  const int readBefore = service.calls(readAll);
  const auto other = bus.connect();
  g_dbus_connection_emit_signal(other.get(), nullptr, "/org/freedesktop/ModemManager1",
                                "org.freedesktop.DBus.ObjectManager", "InterfacesAdded",
                                g_variant_new_parsed("(objectpath '/', @a{sa{sv}} {})"), nullptr);
  g_dbus_connection_flush_sync(other.get(), nullptr, nullptr);
  runForAWhile();
  EXPECT_EQ(service.calls(readAll), readBefore);
}

// ---- The bus

TEST_F(LinuxTelephonyFailureTest, WorksWithoutABusAndFindsOneThatComes) {
  bus.stop();
  begin();
  for (int i = 0; i < 20; ++i) g_main_context_iteration(nullptr, FALSE);
  EXPECT_EQ(code(), "none");
  bus.start();
  service.start();
  EXPECT_TRUE(codeBecomes("262-01"));
}

TEST_F(LinuxTelephonyFailureTest, SurvivesTheBus) {
  service.start();
  begin();
  ASSERT_TRUE(codeBecomes("262-01"));
  bus.stop();
  ASSERT_TRUE(codeBecomes("none"));
  EXPECT_EQ(technology(), "none");
  service.stop();
  bus.start();
  service.start();
  ASSERT_TRUE(codeBecomes("262-01"));
  EXPECT_THAT(reported, ElementsAre("262-01", "none", "262-01"));
}

TEST_F(LinuxTelephonyFailureTest, AReadingOnAnEarlierBusCountsNoMore) {
  service.answerInstead(readAll, "");
  service.start();
  std::vector<std::string> told;
  const auto client = std::make_shared<ModemManagerClient>(
      mainRunLoop,
      [&told](const Subscription &subscription) {
        told.push_back(subscription.homeOperator ? subscription.homeOperator->networkCode : "none");
      },
      ModemManagerClient::Intervals());
  const auto first = bus.connect();
  client->use(first.get());
  ASSERT_TRUE(thread.runUntil([this] { return service.calls(readAll) == 1; }));
  service.answerAgain(readAll);
  const auto second = bus.connect();
  client->use(second.get());
  ASSERT_TRUE(thread.runUntil([&told] { return told.size() >= 2; }));
  EXPECT_THAT(told, ElementsAre("none", "01"));
}

// ---- The service does not answer

/// With an adapter that is soon out of patience.
class LinuxTelephonyHangTest : public LinuxTelephonyFailureTest {
 protected:
  LinuxTelephonyHangTest() : LinuxTelephonyFailureTest({50, 500, 500}) {}
};

TEST_F(LinuxTelephonyHangTest, KnowsNothingOfAServiceThatNeverAnswersAndAsksAgain) {
  service.answerInstead(readAll, "");
  service.start();
  begin();
  ASSERT_TRUE(thread.runUntil([this] { return service.calls(readAll) >= 3; }));
  EXPECT_EQ(code(), "none");
  EXPECT_EQ(technology(), "none");
  EXPECT_THAT(reported, IsEmpty());
  service.answerAgain(readAll);
  ASSERT_TRUE(codeBecomes("262-01"));
}

TEST_F(LinuxTelephonyHangTest, ForgetsWhatAServiceHasToldThatThenHangs) {
  service.start();
  begin();
  ASSERT_TRUE(codeBecomes("262-01"));
  service.answerInstead(readAll, "");
  service.setAccessTechnologies(0, umts);
  ASSERT_TRUE(codeBecomes("none"));
  EXPECT_EQ(technology(), "none");
}

TEST_F(LinuxTelephonyHangTest, TellsTheTechnologyWhenOnlyTheSimDoesNotAnswer) {
  service.answerInstead(readSim, "");
  service.start();
  begin();
  ASSERT_TRUE(technologyBecomes("LTE"));
  EXPECT_EQ(code(), "none");
  service.answerAgain(readSim);
  EXPECT_TRUE(codeBecomes("262-01"));
}

TEST_F(LinuxTelephonyHangTest, ReadsAServiceThatIsRestartedWhileItHangs) {
  service.answerInstead(readAll, "");
  service.start();
  begin();
  ASSERT_TRUE(thread.runUntil([this] { return service.calls(readAll) == 1; }));
  service.stop();
  service.answerAgain(readAll);
  service.start();
  EXPECT_TRUE(codeBecomes("262-01"));
}

TEST_F(LinuxTelephonyFailureTest, DoesNotAskAgainAndAgainWhatIsNotAnswered) {
  service.answerInstead(readAll, "(false,)");  // an answer that cannot be used, at once
  service.start();
  begin();
  ASSERT_TRUE(thread.runUntil([this] { return service.calls(readAll) == 1; }));
  runForAWhile();
  EXPECT_EQ(service.calls(readAll), 1);
  // A change is a reason to ask.
  service.answerAgain(readAll);
  service.setAccessTechnologies(0, umts);
  EXPECT_TRUE(codeBecomes("262-01"));
}

TEST_F(LinuxTelephonyFailureTest, IsReadOnceAtATimeWhateverChangesMeanwhile) {
  service.answerInstead(readAll, "");
  service.start();
  begin();
  ASSERT_TRUE(thread.runUntil([this] { return service.calls(readAll) == 1; }));
  service.setAccessTechnologies(0, umts);
  runForAWhile();
  EXPECT_EQ(service.calls(readAll), 1);
}

// ---- The service answers nonsense

constexpr const char *nonsense[] = {
    "(@a{sv} {},)",
    "()",
    "('modems', uint32 7)",
    "(@a{oa{sa{sv}}} {},)",
    "({objectpath '/': {'': @a{sv} {}}},)",
    "({objectpath '/x': {'org.freedesktop.ModemManager1.Modem': @a{sv} {}}},)",
    "({objectpath '/x': {'org.freedesktop.ModemManager1.Modem': {'Sim': <'/'>, 'State': <'8'>}}},)",
    "({objectpath '/x': {'org.freedesktop.ModemManager1.Modem':"
    " {'Sim': <objectpath '/nowhere'>, 'State': <-8>, 'AccessTechnologies': <uint32 16384>}}},)",
    "({objectpath '/x': {'org.freedesktop.ModemManager1.Modem':"
    " {'State': <8>, 'AccessTechnologies': <[uint32 16384]>}}},)",
};

class LinuxTelephonyNonsenseTest : public LinuxTelephonyFailureTest,
                                   public testing::WithParamInterface<const char *> {};

TEST_P(LinuxTelephonyNonsenseTest, IsNoInformation) {
  service.answerInstead(readAll, GetParam());
  service.start();
  begin();
  ASSERT_TRUE(thread.runUntil([this] { return service.calls(readAll) == 1; }));
  service.answerAgain(readAll);
  service.setAccessTechnologies(0, umts);
  EXPECT_TRUE(codeBecomes("262-01")) << "the service has come to its senses";
  EXPECT_THAT(reported, ElementsAre("262-01"));
}

INSTANTIATE_TEST_SUITE_P(Answers, LinuxTelephonyNonsenseTest, testing::ValuesIn(nonsense));

class LinuxTelephonySimNonsenseTest : public LinuxTelephonyNonsenseTest {};

TEST_P(LinuxTelephonySimNonsenseTest, LeavesTheCarrierAbsent) {
  service.answerInstead(readSim, GetParam());
  service.start();
  begin();
  ASSERT_TRUE(technologyBecomes("LTE"));
  EXPECT_EQ(code(), "none");
  EXPECT_THAT(reported, ElementsAre("none"));
}

INSTANTIATE_TEST_SUITE_P(Answers, LinuxTelephonySimNonsenseTest,
                         testing::Values("()", "('26201',)", "(<26201>,)", "(<['26201']>,)", "(<<'26201'>>,)",
                                         "(<''>,)", "(<'operator'>,)", "(<'262 01'>,)", "(<b'26201'>,)"));

TEST_F(LinuxTelephonyFailureTest, SignalsOfOtherShapesChangeNothing) {
  service.start();
  begin();
  ASSERT_TRUE(codeBecomes("262-01"));
  const std::string modem = "/org/freedesktop/ModemManager1/Modem/0";
  const char *const properties = "org.freedesktop.DBus.Properties";
  for (const char *const parameters :
       {"('org.freedesktop.ModemManager1.Modem',)", "('org.freedesktop.ModemManager1.Modem', 'Sim', 'State')",
        "('org.freedesktop.ModemManager1.Modem', {'Sim': 'x'}, @as [])",
        "('org.freedesktop.ModemManager1.Modem', {'Sim': <uint32 7>}, @as [])"}) {
    service.emit(modem, properties, "PropertiesChanged", parameters);
  }
  service.emit("/org/freedesktop/ModemManager1", "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved",
               "(uint32 7,)");
  service.setAccessTechnologies(0, umts);
  ASSERT_TRUE(technologyBecomes("WCDMA"));
  EXPECT_EQ(code(), "262-01");
  EXPECT_THAT(reported, ElementsAre("262-01"));
}

}  // namespace
}  // namespace kx
