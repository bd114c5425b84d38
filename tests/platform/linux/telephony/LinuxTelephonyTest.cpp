#include <atomic>
#include <stdexcept>
#include <thread>

#include "platform/linux/telephony/LinuxTelephony.h"
#include "tests/platform/linux/telephony/FakeModemManager.h"
#include "tests/platform/linux/telephony/TelephonyTest.h"

namespace kx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t lte = MM_MODEM_ACCESS_TECHNOLOGY_LTE;
constexpr std::uint32_t umts = MM_MODEM_ACCESS_TECHNOLOGY_UMTS;

/// With a service that has one modem, on LTE with SIM 0 of 262-01.
class LinuxTelephonyTest : public TelephonyTest {
 protected:
  LinuxTelephonyTest() {
    service.setOperatorIdentifier(0, "26201");
    service.addModem(0, 0, lte);
    service.start();
  }

  void beginAndRead() {
    begin();
    ASSERT_TRUE(codeBecomes("262-01"));
    reported.clear();
  }

  FakeModemManager service{bus};
};

TEST_F(LinuxTelephonyTest, KnowsNothingAtFirstAndReportsWhatArrives) {
  begin();
  EXPECT_EQ(code(), "none");
  EXPECT_EQ(technology(), "none");
  ASSERT_TRUE(codeBecomes("262-01"));
  EXPECT_EQ(technology(), "LTE");
  EXPECT_THAT(reported, ElementsAre("262-01"));
}

TEST_F(LinuxTelephonyTest, KeepsANetworkCodeOfThreeDigits) {
  service.setOperatorIdentifier(0, "310410");
  begin();
  EXPECT_TRUE(codeBecomes("310-410"));
}

TEST_F(LinuxTelephonyTest, ReportsASimThatIsTakenOutAndAnotherThatIsPutIn) {
  beginAndRead();
  service.setSim(0, std::nullopt);
  ASSERT_TRUE(codeBecomes("none"));
  service.setOperatorIdentifier(1, "310410");
  service.setSim(0, 1);
  ASSERT_TRUE(codeBecomes("310-410"));
  EXPECT_THAT(reported, ElementsAre("none", "310-410"));
}

TEST_F(LinuxTelephonyTest, ReportsASimThatIsSwapped) {
  beginAndRead();
  service.setOperatorIdentifier(1, "23430");
  service.setSim(0, 1);
  ASSERT_TRUE(codeBecomes("234-30"));
  EXPECT_THAT(reported, ElementsAre("234-30"));
}

TEST_F(LinuxTelephonyTest, ReportsTheOperatorThatASimTellsLate) {
  service.setOperatorIdentifier(0, "");
  begin();
  ASSERT_TRUE(technologyBecomes("LTE"));
  EXPECT_EQ(code(), "none");
  service.setOperatorIdentifier(0, "26201");
  ASSERT_TRUE(codeBecomes("262-01"));
  EXPECT_THAT(reported, ElementsAre("none", "262-01"));
}

TEST_F(LinuxTelephonyTest, ReportsNoChangeOfTheTechnologyAlone) {
  beginAndRead();
  service.setAccessTechnologies(0, umts);
  ASSERT_TRUE(technologyBecomes("WCDMA"));
  service.setAccessTechnologies(0, MM_MODEM_ACCESS_TECHNOLOGY_UNKNOWN);
  ASSERT_TRUE(technologyBecomes("none"));
  service.setAccessTechnologies(0, umts | MM_MODEM_ACCESS_TECHNOLOGY_HSPA_PLUS);
  ASSERT_TRUE(technologyBecomes("HSUPA"));
  EXPECT_THAT(reported, IsEmpty());
  EXPECT_EQ(code(), "262-01");
}

TEST_F(LinuxTelephonyTest, HasNoTechnologyWhileTheModemSearches) {
  beginAndRead();
  service.setState(0, MM_MODEM_STATE_SEARCHING);
  ASSERT_TRUE(technologyBecomes("none"));
  service.setState(0, MM_MODEM_STATE_CONNECTED);
  ASSERT_TRUE(technologyBecomes("LTE"));
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(LinuxTelephonyTest, ReportsTheArrivalOfATechnologyWithoutACarrierOnce) {
  service.setSim(0, std::nullopt);
  begin();
  ASSERT_TRUE(technologyBecomes("LTE"));
  service.setAccessTechnologies(0, umts);
  ASSERT_TRUE(technologyBecomes("WCDMA"));
  EXPECT_THAT(reported, ElementsAre("none"));
}

TEST_F(LinuxTelephonyTest, ReportsAModemThatIsPluggedOutAndIn) {
  beginAndRead();
  service.removeModem(0);
  ASSERT_TRUE(codeBecomes("none"));
  EXPECT_EQ(technology(), "none");
  service.addModem(1, 0, umts);
  ASSERT_TRUE(codeBecomes("262-01"));
  EXPECT_EQ(technology(), "WCDMA");
  EXPECT_THAT(reported, ElementsAre("none", "262-01"));
}

TEST_F(LinuxTelephonyTest, OfSeveralModemsTheOneThatIsInUseCounts) {
  beginAndRead();
  service.setOperatorIdentifier(1, "310410");
  service.addModem(1, 1, umts);
  service.setState(0, MM_MODEM_STATE_SEARCHING);
  ASSERT_TRUE(codeBecomes("310-410"));
  EXPECT_EQ(technology(), "WCDMA");
  service.setState(0, MM_MODEM_STATE_REGISTERED);
  ASSERT_TRUE(codeBecomes("262-01"));
  EXPECT_EQ(technology(), "LTE");
}

TEST_F(LinuxTelephonyTest, ACarrierThatWasReadStaysAsItWas) {
  beginAndRead();
  const auto carrier = networkInfo->subscriberCellularProvider();
  service.setSim(0, std::nullopt);
  ASSERT_TRUE(codeBecomes("none"));
  EXPECT_EQ(codeOf(carrier), "262-01");
}

// ---- The telephony objects

TEST_F(LinuxTelephonyTest, ALaterObjectKnowsAtOnceWhatAnEarlierOneHasLearned) {
  beginAndRead();
  networkInfo = telephony.makeTelephonyNetworkInfo();
  EXPECT_EQ(code(), "262-01");
  EXPECT_EQ(technology(), "LTE");
}

TEST_F(LinuxTelephonyTest, DoesNotReportWhatWasKnownWhenTheObjectWasMade) {
  beginAndRead();
  begin();
  service.setAccessTechnologies(0, umts);
  ASSERT_TRUE(technologyBecomes("WCDMA"));
  EXPECT_THAT(reported, IsEmpty());
}

TEST_F(LinuxTelephonyTest, ReportsAChangeThatCameBeforeTheNotifier) {
  networkInfo = telephony.makeTelephonyNetworkInfo();
  ASSERT_TRUE(codeBecomes("262-01"));
  networkInfo->setSubscriberCellularProviderDidUpdateNotifier(
      [this](const std::shared_ptr<Carrier> &carrier) { reported.push_back(codeOf(carrier)); });
  EXPECT_THAT(reported, IsEmpty()) << "from within the call";
  ASSERT_TRUE(thread.runUntil([this] { return !reported.empty(); }));
  EXPECT_THAT(reported, ElementsAre("262-01"));
}

TEST_F(LinuxTelephonyTest, ANewNotifierReplacesTheEarlierOne) {
  beginAndRead();
  std::vector<std::string> reportedToTheNewOne;
  networkInfo->setSubscriberCellularProviderDidUpdateNotifier(
      [&](const std::shared_ptr<Carrier> &carrier) { reportedToTheNewOne.push_back(codeOf(carrier)); });
  service.setSim(0, std::nullopt);
  ASSERT_TRUE(codeBecomes("none"));
  EXPECT_THAT(reported, IsEmpty());
  EXPECT_THAT(reportedToTheNewOne, ElementsAre("none"));
  networkInfo->setSubscriberCellularProviderDidUpdateNotifier(nullptr);
  service.setSim(0, 0);
  ASSERT_TRUE(codeBecomes("262-01"));
  EXPECT_THAT(reportedToTheNewOne, ElementsAre("none"));
}

TEST_F(LinuxTelephonyTest, AReleasedObjectReportsNoMoreAndLetsGoOfWhatItsNotifierHeld) {
  beginAndRead();
  auto other = telephony.makeTelephonyNetworkInfo();
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> watched = held;
  int calls = 0;
  other->setSubscriberCellularProviderDidUpdateNotifier(
      [held, &calls](const std::shared_ptr<Carrier> &) { ++calls; });
  held.reset();
  EXPECT_FALSE(watched.expired());
  other.reset();
  EXPECT_TRUE(watched.expired());
  service.setSim(0, std::nullopt);
  ASSERT_TRUE(codeBecomes("none"));
  EXPECT_EQ(calls, 0);
}

TEST_F(LinuxTelephonyTest, AnObjectMayBeReleasedByItsNotifier) {
  auto other = telephony.makeTelephonyNetworkInfo();
  other->setSubscriberCellularProviderDidUpdateNotifier(
      [&other](const std::shared_ptr<Carrier> &) { other.reset(); });
  EXPECT_TRUE(thread.runUntil([&other] { return other == nullptr; }));
}

TEST_F(LinuxTelephonyTest, ANotifierThatThrowsKeepsNothingFromTheOthers) {
  const auto other = telephony.makeTelephonyNetworkInfo();
  other->setSubscriberCellularProviderDidUpdateNotifier(
      [](const std::shared_ptr<Carrier> &) { throw std::runtime_error("thrown by a notifier"); });
  begin();
  testing::internal::CaptureStderr();
  ASSERT_TRUE(codeBecomes("262-01"));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("thrown by a notifier"));
  EXPECT_THAT(reported, ElementsAre("262-01"));
}

TEST_F(LinuxTelephonyTest, ReportsOnTheMainThreadWhicheverThreadAsks) {
  std::thread::id reporter;
  std::thread([&] {
    networkInfo = telephony.makeTelephonyNetworkInfo();
    networkInfo->setSubscriberCellularProviderDidUpdateNotifier(
        [&](const std::shared_ptr<Carrier> &) { reporter = std::this_thread::get_id(); });
  }).join();
  ASSERT_TRUE(codeBecomes("262-01"));
  EXPECT_EQ(reporter, std::this_thread::get_id());
}

TEST_F(LinuxTelephonyTest, ManyThreadsMayUseItAtOnce) {
  beginAndRead();
  std::atomic<bool> stopping = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      while (!stopping) {
        const auto own = telephony.makeTelephonyNetworkInfo();
        own->setSubscriberCellularProviderDidUpdateNotifier([](const std::shared_ptr<Carrier> &) {});
        const std::string read = codeOf(own->subscriberCellularProvider());
        EXPECT_TRUE(read == "262-01" || read == "none") << read;
        networkInfo->currentRadioAccessTechnology();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
  }
  for (const std::optional<int> sim : {std::optional<int>(), std::optional<int>(0), std::optional<int>()}) {
    service.setSim(0, sim);
    EXPECT_TRUE(codeBecomes(sim ? "262-01" : "none"));
  }
  stopping = true;
  for (std::thread &other : threads) other.join();
  EXPECT_THAT(reported, ElementsAre("none", "262-01", "none"));
}

// ---- Floods

TEST_F(LinuxTelephonyTest, ReadsNothingWhenTheSignalsStrengthChanges) {
  beginAndRead();
  const int readBefore = service.calls("GetManagedObjects");
  service.setSignalQuality(0, 50);
  service.setSignalQuality(0, 51);
  runForAWhile();
  EXPECT_EQ(service.calls("GetManagedObjects"), readBefore);
}

TEST_F(LinuxTelephonyTest, TheSignalsStrengthDoesNotWakeTheMainThread) {
  GLibPointer<GDBusConnection> connection;
  systemBus->observe([&connection](GDBusConnection *opened) { connection = retained(opened); });
  beginAndRead();
  ASSERT_TRUE(thread.runUntil([&connection] { return connection != nullptr; }));
  // What a connection was sent has come to it when the bus has answered it.
  const auto letItArrive = [](GDBusConnection *to) {
    GVariant *const answer = g_dbus_connection_call_sync(to, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                         "org.freedesktop.DBus", "GetId", nullptr, nullptr,
                                                         G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    ASSERT_NE(answer, nullptr);
    g_variant_unref(answer);
  };
  const auto runUntilIdle = [] {
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
  };
  runUntilIdle();
  int wakeUps = 0;
  for (std::uint32_t i = 0; i < 100; ++i) {
    service.setSignalQuality(0, i % 2);
    runUntilIdle();  // the service's own, which is in this process
    letItArrive(service.connection());
    letItArrive(connection.get());
    if (g_main_context_pending(nullptr) != FALSE) ++wakeUps;
    runUntilIdle();
  }
  EXPECT_EQ(wakeUps, 0);
  service.setAccessTechnologies(0, umts);
  EXPECT_TRUE(technologyBecomes("WCDMA"));
}

TEST_F(LinuxTelephonyTest, OfAThousandChangesTheLastOneCounts) {
  beginAndRead();
  const int readBefore = service.calls("GetManagedObjects");
  service.setOperatorIdentifier(1, "310410");
  const gint64 begun = g_get_monotonic_time();
  for (int i = 0; i < 1000; ++i) {
    service.setSim(0, i % 2);
    service.setAccessTechnologies(0, i % 2 == 0 ? lte : umts);
    g_usleep(1000);
    g_main_context_iteration(nullptr, FALSE);
  }
  ASSERT_TRUE(technologyBecomes("WCDMA"));
  ASSERT_TRUE(codeBecomes("310-410"));
  const gint64 tenths = (g_get_monotonic_time() - begun) / 100'000;
  EXPECT_LE(service.calls("GetManagedObjects") - readBefore, tenths + 1) << "more readings than ten a second";
  EXPECT_LE(reported.size(), static_cast<std::size_t>(tenths + 1));
}

TEST_F(LinuxTelephonyTest, ChangesWithoutEndPutNoReadingOff) {
  beginAndRead();
  std::uint32_t round = 0;
  ASSERT_TRUE(thread.runUntil([&] {
    service.setAccessTechnologies(0, umts | 1U << (18 + round++ % 2));  // another signal each time
    g_main_context_wakeup(nullptr);
    return technology() == "WCDMA";
  }));
}

// ---- The end

TEST_F(LinuxTelephonyTest, TheClientLetsGoOfEverythingWhenItIsReleased) {
  auto connection = bus.connect();
  std::atomic<bool> finalized = false;  // on GLib's thread, if that lets go of it last
  g_object_weak_ref(
      G_OBJECT(connection.get()),
      [](gpointer data, GObject *) { *static_cast<std::atomic<bool> *>(data) = true; }, &finalized);
  int told = 0;
  ModemManagerClient::Intervals intervals;
  intervals.toGatherChanges = 600'000;
  auto client = std::make_shared<ModemManagerClient>(
      mainRunLoop, [&told](const Subscription &) { ++told; }, intervals);
  client->use(connection.get());
  connection.reset();
  ASSERT_TRUE(thread.runUntil([&told] { return told == 1; }));
  service.setAccessTechnologies(0, umts);  // so that another reading is to come
  ASSERT_TRUE(thread.runUntil([] { return g_main_context_pending(nullptr) == FALSE; }));
  const std::weak_ptr<ModemManagerClient> watched = client;
  client.reset();
  EXPECT_TRUE(watched.expired());
  EXPECT_TRUE(eventually([&finalized] {
    g_main_context_iteration(nullptr, FALSE);
    return finalized.load();
  }));
  EXPECT_EQ(told, 1);
}

}  // namespace
}  // namespace kx
