#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/linux/bus/BusNameWatch.h"
#include "platform/linux/bus/BusPeer.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/support/FakeService.h"

namespace kx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *name = "org.example.Service";
constexpr const char *path = "/org/example/Service";
constexpr const char *interface = "org.example.Service";
constexpr BusProperties properties{interface, {"Read", "AlsoRead"}};

/// A peer of a service that does what the test says.
class BusPeerTest : public testing::Test {
 protected:
  void SetUp() override {
    service.appear();
    const BusNameWatch watch(
        connection.get(), name, G_BUS_NAME_WATCHER_FLAGS_NONE, nullptr,
        [this](const char *owner) { peer.emplace(connection.get(), owner, nullptr); }, [] {});
    ASSERT_TRUE(thread.runUntil([this] { return peer.has_value(); }));
  }

  /// Calls `method`, and notes what comes: the value as a text, or "error".
  void call(const char *method, const char *replyType, int milliseconds = BusPeer::noTimeLimit) {
    peer->call(
        path, interface, method, nullptr, replyType,
        [this](GVariant *value, const GError *error) {
          EXPECT_NE(value == nullptr, error == nullptr);
          replies.push_back(value == nullptr ? "error" : printed(value));
        },
        milliseconds);
  }
  bool replied(std::size_t count = 1) {
    return thread.runUntil([this, count] { return replies.size() >= count; });
  }

  static std::string printed(GVariant *value) {
    gchar *const text = g_variant_print(value, FALSE);
    std::string copy = text;
    g_free(text);
    return copy;
  }

  /// Has the bus take all that this connection has sent: what it subscribes to reaches it from then on only.
  void letItLeave() const {
    GVariant *const answer = g_dbus_connection_call_sync(
        connection.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
        nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    ASSERT_NE(answer, nullptr);
    g_variant_unref(answer);
  }
  /// Has the connection's thread take all that the service has sent, and nothing else happen.
  void letItArrive() const {
    service.flush();
    letItLeave();
  }
  static void runUntilIdle() {
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
  }
  void changeProperty(const std::string &property, const std::string &value) {
    service.emit(path, BusPeer::propertiesInterface, "PropertiesChanged",
                 std::string("('") + interface + "', {'" + property + "': <" + value + ">}, @as [])");
  }

  PrivateBus bus;
  const MainThread thread;
  FakeService service{bus, name};
  std::shared_ptr<GDBusConnection> connection = bus.connect();
  std::optional<BusPeer> peer;
  std::vector<std::string> replies;
};

TEST_F(BusPeerTest, RepliesWithWhatTheMethodReturns) {
  service.answer("Ask", "('answer', 7)");
  call("Ask", "(si)");
  EXPECT_THAT(replies, IsEmpty()) << "told from within the call";
  ASSERT_TRUE(replied());
  EXPECT_THAT(replies, ElementsAre("('answer', 7)"));
}

TEST_F(BusPeerTest, AnAnswerOfAnotherTypeIsAnError) {
  for (const char *const answer : {"()", "(7,)", "('answer', 'seven')", "(('answer', 7),)"}) {
    service.answer("Ask", answer);
    call("Ask", "(si)");
  }
  service.refuse("Ask", "org.example.Error.No", "no");
  call("Ask", "(si)");
  ASSERT_TRUE(replied(5));
  EXPECT_THAT(replies, testing::Each("error"));
}

TEST_F(BusPeerTest, AServiceThatNeverAnswersIsAnErrorAfterTheTimeLimit) {
  service.answer("Ask", "");
  call("Ask", "(s)", 50);
  ASSERT_TRUE(replied());
  EXPECT_THAT(replies, ElementsAre("error"));
}

TEST_F(BusPeerTest, AServiceThatGoesWhileItIsAskedIsAnError) {
  service.answer("Ask", "");
  call("Ask", "(s)");
  ASSERT_TRUE(thread.runUntil([this] { return service.calls("Ask") == 1; }));
  service.vanish();
  ASSERT_TRUE(replied());
  EXPECT_THAT(replies, ElementsAre("error"));
}

TEST_F(BusPeerTest, WhatThePeerWasAskedIsNotToldOnceItIsGone) {
  service.answer("Ask", "('answer',)");
  call("Ask", "(s)");
  ASSERT_TRUE(eventually([this] { return service.calls("Ask") == 1; }));
  letItArrive();
  peer.reset();  // the answer is there, and waits for the main thread
  runUntilIdle();
  EXPECT_THAT(replies, IsEmpty());
}

TEST_F(BusPeerTest, WhatNobodyWantsToKnowGoesOutThoughThePeerDoes) {
  peer->call(path, interface, "Tell", nullptr, "()", nullptr);
  peer.reset();
  EXPECT_TRUE(thread.runUntil([this] { return service.calls("Tell") == 1; }));
}

TEST_F(BusPeerTest, AReplyThatThrowsDoesNotReachTheLoop) {
  peer->call(path, interface, "Ask", nullptr, "()",
             [](GVariant *, const GError *) { throw std::runtime_error("thrown by a reply"); });
  call("Ask", "()");
  EXPECT_TRUE(replied());
}

TEST_F(BusPeerTest, HearsTheServicesSignals) {
  std::vector<std::string> heard;
  peer->subscribe(interface, "Changed", path, nullptr,
                  [&heard](GVariant *parameters) { heard.push_back(printed(parameters)); });
  letItLeave();
  service.emit(path, interface, "Other", "('no',)");
  service.emit("/elsewhere", interface, "Changed", "('no',)");
  service.emit(path, "org.example.Other", "Changed", "('no',)");
  service.emit(path, interface, "Changed", "('yes',)");
  service.emit(path, interface, "Changed", "(7,)");
  ASSERT_TRUE(thread.runUntil([&heard] { return heard.size() == 2; }));
  EXPECT_THAT(heard, ElementsAre("('yes',)", "(7,)"));
}

TEST_F(BusPeerTest, HearsNobodyElse) {
  int heard = 0;
  peer->subscribe(interface, "Changed", nullptr, nullptr, [&heard](GVariant *) { ++heard; });
  letItLeave();
  FakeService other(bus, "org.example.Other");
  other.appear();
  other.emit(path, interface, "Changed", "()");
  other.flush();
  service.emit(path, interface, "Changed", "()");
  ASSERT_TRUE(thread.runUntil([&heard] { return heard > 0; }));
  letItArrive();
  runUntilIdle();
  EXPECT_EQ(heard, 1);
}

TEST_F(BusPeerTest, HearsNothingOnceItHasUnsubscribed) {
  int heard = 0;
  peer->subscribe(interface, "Changed", path, nullptr, [&heard](GVariant *) { ++heard; });
  peer->followProperties(properties, path, [&heard](GVariant *) { ++heard; });
  letItLeave();
  service.emit(path, interface, "Changed", "()");
  changeProperty("Read", "1");
  letItArrive();
  peer->unsubscribe();
  runUntilIdle();
  changeProperty("Read", "2");
  letItArrive();
  runUntilIdle();
  EXPECT_EQ(heard, 0);
}

TEST_F(BusPeerTest, FollowsThePropertiesThatAreOfInterest) {
  std::vector<std::string> heard;
  peer->followProperties(properties, nullptr,
                         [&heard](GVariant *parameters) { heard.push_back(printed(parameters)); });
  letItLeave();
  changeProperty("Read", "1");
  changeProperty("Other", "2");
  service.emit(path, BusPeer::propertiesInterface, "PropertiesChanged",
               "('org.example.Other', {'Read': <3>}, @as [])");
  service.emit("/elsewhere", BusPeer::propertiesInterface, "PropertiesChanged",
               "('org.example.Service', @a{sv} {}, ['AlsoRead'])");
  ASSERT_TRUE(thread.runUntil([&heard] { return heard.size() == 2; }));
  EXPECT_THAT(heard, ElementsAre("('org.example.Service', {'Read': <1>}, [])",
                                 "('org.example.Service', {}, ['AlsoRead'])"));
}

TEST_F(BusPeerTest, FollowsThePropertiesOfSeveralInterfaces) {
  static constexpr BusProperties others{"org.example.Other", {"Read"}};
  int heard = 0;
  int heardOfOthers = 0;
  peer->followProperties(properties, path, [&heard](GVariant *) { ++heard; });
  peer->followProperties(others, path, [&heardOfOthers](GVariant *) { ++heardOfOthers; });
  letItLeave();
  service.emit(path, BusPeer::propertiesInterface, "PropertiesChanged",
               "('org.example.Other', {'Read': <1>}, @as [])");
  changeProperty("AlsoRead", "1");
  EXPECT_TRUE(thread.runUntil([&heard] { return heard == 1; }));
  EXPECT_EQ(heardOfOthers, 1);
}

TEST_F(BusPeerTest, ChangesOfOtherPropertiesDoNotWakeTheMainThread) {
  int heard = 0;
  peer->followProperties(properties, path, [&heard](GVariant *) { ++heard; });
  letItLeave();
  runUntilIdle();
  int wakeUps = 0;
  for (int i = 0; i < 100; ++i) {
    changeProperty("SignalQuality", std::to_string(i));
    letItArrive();
    if (g_main_context_pending(nullptr) != FALSE) ++wakeUps;
    runUntilIdle();
  }
  EXPECT_EQ(wakeUps, 0);
  changeProperty("Read", "1");
  letItArrive();
  EXPECT_NE(g_main_context_pending(nullptr), FALSE) << "what this test counts is not there";
  runUntilIdle();
  EXPECT_EQ(heard, 1);
}

TEST_F(BusPeerTest, TheHostsOwnSignalsAreItsOwn) {
  // What is dropped here is only what this connection gets.
  const auto hosts = bus.connect();
  std::atomic<int> heard = 0;
  g_dbus_connection_signal_subscribe(
      hosts.get(), nullptr, BusPeer::propertiesInterface, "PropertiesChanged", nullptr, nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *, GVariant *,
         gpointer data) { ++*static_cast<std::atomic<int> *>(data); },
      &heard, nullptr);
  GVariant *const answer = g_dbus_connection_call_sync(
      hosts.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId", nullptr,
      nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  g_variant_unref(answer);
  peer->followProperties(properties, path, [](GVariant *) {});
  changeProperty("SignalQuality", "1");
  EXPECT_TRUE(thread.runUntil([&heard] { return heard == 1; }));
}

TEST_F(BusPeerTest, ReachesTheServiceThoughTheHostHasMadeAnotherContextItsThreadsDefault) {
  const ForeignContext context;
  int heard = 0;
  std::vector<std::string> owners;
  const BusNameWatch watch(
      connection.get(), name, G_BUS_NAME_WATCHER_FLAGS_NONE, nullptr,
      [&owners](const char *owner) { owners.emplace_back(owner); },
      [&owners] { owners.emplace_back("nobody"); });
  ASSERT_TRUE(thread.runUntil([&owners] { return owners.size() == 1; }));
  peer->subscribe(interface, "Changed", path, nullptr, [&heard](GVariant *) { ++heard; });
  call("Ask", "()");
  ASSERT_TRUE(replied());
  service.emit(path, interface, "Changed", "()");
  ASSERT_TRUE(thread.runUntil([&heard] { return heard == 1; }));
  service.vanish();
  ASSERT_TRUE(thread.runUntil([&owners] { return owners.size() == 2; }));
  EXPECT_EQ(owners.back(), "nobody");
}

TEST_F(BusPeerTest, AWatchThatHasEndedTellsNothing) {
  int told = 0;
  std::optional<BusNameWatch> watch;
  watch.emplace(
      connection.get(), name, G_BUS_NAME_WATCHER_FLAGS_NONE, nullptr, [&told](const char *) { ++told; },
      [&told] { ++told; });
  ASSERT_TRUE(thread.runUntil([&told] { return told == 1; }));
  service.vanish();
  GVariant *const answer = g_dbus_connection_call_sync(
      connection.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
      nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  g_variant_unref(answer);
  watch.reset();
  runUntilIdle();
  EXPECT_EQ(told, 1);
}

}  // namespace
}  // namespace kx
