#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "platform/linux/bus/SessionBus.h"
#include "platform/linux/bus/SystemBus.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/support/PrivateBus.h"

namespace kx {
namespace {

class SystemBusTest : public testing::Test {
 protected:
  /// Runs the main loop until `condition` holds; false when it never did.
  static bool loopUntil(const std::function<bool()> &condition) {
    return eventually([&] {
      while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
      }
      return condition();
    });
  }

  std::shared_ptr<SystemBus> makeBus() {
    return std::make_shared<SystemBus>(LinuxRunLoop::of(g_main_context_default()), 1U);
  }

  PrivateBus bus_;
};

TEST_F(SystemBusTest, TellsItsObserversOfOneConnection) {
  const auto bus = makeBus();
  GDBusConnection *first = nullptr;
  GDBusConnection *second = nullptr;
  bus->observe([&](GDBusConnection *connection) { first = connection; });
  bus->observe([&](GDBusConnection *connection) { second = connection; });
  EXPECT_EQ(first, nullptr) << "told from within the call";
  ASSERT_TRUE(loopUntil([&] { return second != nullptr; }));
  EXPECT_EQ(first, second);
}

/// How many connections there are to the bus, the bus itself not counted.
std::size_t connectionsTo(const PrivateBus &bus) {
  const auto own = bus.connect();
  GVariant *const answer = g_dbus_connection_call_sync(
      own.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ListNames",
      nullptr, G_VARIANT_TYPE("(as)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  if (answer == nullptr) throw std::runtime_error("the bus does not answer");
  GVariant *const names = g_variant_get_child_value(answer, 0);
  const std::size_t count = g_variant_n_children(names);
  g_variant_unref(names);
  g_variant_unref(answer);
  return count - 2;  // without the bus's own name, and the connection that asks
}

TEST_F(SystemBusTest, HasOneConnectionHoweverManyObserve) {
  ASSERT_EQ(connectionsTo(bus_), 0U);
  const auto bus = makeBus();
  int told = 0;
  for (int i = 0; i < 5; ++i) bus->observe([&](GDBusConnection *) { ++told; });
  ASSERT_TRUE(loopUntil([&] { return told >= 5; }));
  for (int i = 0; i < 5; ++i) bus->observe([&](GDBusConnection *) { ++told; });
  ASSERT_TRUE(loopUntil([&] { return told >= 10; }));
  EXPECT_EQ(told, 10);
  EXPECT_EQ(connectionsTo(bus_), 1U);
}

TEST_F(SystemBusTest, IsReachedThoughTheHostHasMadeAnotherContextItsThreadsDefault) {
  const MainThread thread;
  const ForeignContext context;
  const auto bus = makeBus();
  std::vector<bool> told;
  bus->observe([&](GDBusConnection *connection) { told.push_back(connection != nullptr); });
  ASSERT_TRUE(thread.runUntil([&] { return told.size() == 1; }));
  bus_.stop();
  ASSERT_TRUE(thread.runUntil([&] { return told.size() == 2; }));
  bus_.start();
  ASSERT_TRUE(thread.runUntil([&] { return told.size() == 3; }));
  EXPECT_EQ(told, (std::vector<bool>{true, false, true}));
}

TEST_F(SystemBusTest, TellsALateObserverOfTheConnectionThatIsOpen) {
  const auto bus = makeBus();
  GDBusConnection *first = nullptr;
  bus->observe([&](GDBusConnection *connection) { first = connection; });
  ASSERT_TRUE(loopUntil([&] { return first != nullptr; }));
  GDBusConnection *late = nullptr;
  bus->observe([&](GDBusConnection *connection) { late = connection; });
  ASSERT_TRUE(loopUntil([&] { return late != nullptr; }));
  EXPECT_EQ(late, first);
}

TEST_F(SystemBusTest, TellsOnTheMainThreadWhoeverObserves) {
  const auto bus = makeBus();
  std::atomic<bool> told = false;
  std::thread::id teller;
  std::thread([&] {
    bus->observe([&](GDBusConnection *) {
      teller = std::this_thread::get_id();
      told = true;
    });
  }).join();
  ASSERT_TRUE(loopUntil([&] { return told.load(); }));
  EXPECT_EQ(teller, std::this_thread::get_id());
}

TEST_F(SystemBusTest, OutlivesTheBusAndOpensTheNextOne) {
  const auto bus = makeBus();
  std::vector<bool> told;
  bus->observe([&](GDBusConnection *connection) { told.push_back(connection != nullptr); });
  ASSERT_TRUE(loopUntil([&] { return told.size() == 1; }));
  bus_.stop();
  ASSERT_TRUE(loopUntil([&] { return told.size() == 2; }));
  bus_.start();
  ASSERT_TRUE(loopUntil([&] { return told.size() == 3; }));
  EXPECT_EQ(told, (std::vector<bool>{true, false, true}));
}

TEST_F(SystemBusTest, FindsABusThatIsStartedLater) {
  bus_.stop();
  const auto bus = makeBus();
  bool told = false;
  bus->observe([&](GDBusConnection *connection) { told = connection != nullptr; });
  for (int i = 0; i < 20; ++i) g_main_context_iteration(nullptr, FALSE);
  EXPECT_FALSE(told);
  bus_.start();
  EXPECT_TRUE(loopUntil([&] { return told; }));
}

TEST_F(SystemBusTest, AnObserverThatThrowsKeepsNothingFromTheOthers) {
  const auto bus = makeBus();
  bool told = false;
  bus->observe([](GDBusConnection *) { throw std::runtime_error("thrown by an observer"); });
  bus->observe([&](GDBusConnection *) { told = true; });
  EXPECT_TRUE(loopUntil([&] { return told; }));
}

TEST_F(SystemBusTest, LetsGoOfItsConnectionWhenItIsReleased) {
  auto bus = makeBus();
  GDBusConnection *connection = nullptr;
  bus->observe([&](GDBusConnection *opened) { connection = opened; });
  ASSERT_TRUE(loopUntil([&] { return connection != nullptr; }));
  std::atomic<bool> finalized = false;  // by GLib's thread
  g_object_weak_ref(
      G_OBJECT(connection), [](gpointer data, GObject *) { *static_cast<std::atomic<bool> *>(data) = true; },
      &finalized);
  bus.reset();
  EXPECT_TRUE(loopUntil([&] { return finalized.load(); }));
}

TEST_F(SystemBusTest, WaitsWhereNoFileCanBeOpened) {
  // The sanitizers look at each kind of object once, by way of a pipe: while there still is one to be had.
  const auto first = makeBus();
  bool isOpen = false;
  first->observe([&](GDBusConnection *connection) { isOpen = connection != nullptr; });
  ASSERT_TRUE(loopUntil([&] { return isOpen; }));

  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlim_t before = limit.rlim_cur;
  const int last = eventfd(0, EFD_CLOEXEC);
  // Also one, three and six free ones are too few: GLib would end the process over the last of those it
  // needs.
  for (const rlim_t free : {rlim_t{0}, rlim_t{1}, rlim_t{3}, rlim_t{6}}) {
    limit.rlim_cur = static_cast<rlim_t>(last) + 1 + free;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const auto bus = makeBus();
    bool told = false;
    bus->observe([&](GDBusConnection *connection) { told = connection != nullptr; });
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(150);
    loopUntil([&] { return std::chrono::steady_clock::now() > end; });
    EXPECT_FALSE(told);
    limit.rlim_cur = before;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_TRUE(loopUntil([&] { return told; }));
  }
  close(last);
}

// ---- The session's

TEST_F(SystemBusTest, TheSessionsIsTheOneThatTheEnvironmentNames) {
  bus_.stop();  // the system's
  const PrivateBus session;
  setenv("DBUS_SESSION_BUS_ADDRESS", session.address().c_str(), 1);
  setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.address().c_str(), 1);
  const auto bus = std::make_shared<SessionBus>(LinuxRunLoop::of(g_main_context_default()), 1U);
  bool told = false;
  bus->observe([&](GDBusConnection *connection) { told = connection != nullptr; });
  EXPECT_TRUE(loopUntil([&] { return told; }));
}

TEST_F(SystemBusTest, NoBusIsStartedForASessionThatHasNone) {
  unsetenv("DBUS_SESSION_BUS_ADDRESS");
  setenv("XDG_RUNTIME_DIR", "/nonexistent", 1);
  const TemporaryDirectory directory;
  std::ofstream(directory.path() + "/dbus-launch") << "#!/bin/sh\ntouch " << directory.path() << "/started\n";
  std::filesystem::permissions(directory.path() + "/dbus-launch", std::filesystem::perms::all);
  setenv("PATH", directory.path().c_str(), 1);
  const auto bus = std::make_shared<SessionBus>(LinuxRunLoop::of(g_main_context_default()), 1U);
  bus->observe([](GDBusConnection *) {});
  for (int i = 0; i < 20; ++i) g_main_context_iteration(nullptr, FALSE);
  EXPECT_FALSE(std::filesystem::exists(directory.path() + "/started"));
}

TEST_F(SystemBusTest, WhatTheHostDoesToItsEnvironmentLaterDoesNotMatter) {
  const PrivateBus session;
  setenv("DBUS_SESSION_BUS_ADDRESS", session.address().c_str(), 1);
  const auto systems = makeBus();
  const auto sessions = std::make_shared<SessionBus>(LinuxRunLoop::of(g_main_context_default()), 1U);
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
  unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  int told = 0;
  const auto tell = [&told](GDBusConnection *connection) { told += connection != nullptr ? 1 : 0; };
  systems->observe(tell);
  sessions->observe(tell);
  EXPECT_TRUE(loopUntil([&told] { return told == 2; }));
}

TEST_F(SystemBusTest, IsFoundHoweverItsAddressIsWritten) {
  const std::string path = bus_.address().substr(std::string("unix:path=").size());
  const std::string guid = g_dbus_connection_get_guid(bus_.connect().get());
  for (const std::string &address : {"unix:path=" + path + ",guid=" + guid, "unix:path=%2F" + path.substr(1),
                                     "unix:path=/nonexistent;unix:path=" + path}) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
    const auto bus = makeBus();
    bool told = false;
    bus->observe([&told](GDBusConnection *connection) { told = connection != nullptr; });
    EXPECT_TRUE(loopUntil([&told] { return told; })) << address;
  }
}

TEST_F(SystemBusTest, IsCalledWhereItHasNoPath) {
  const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string name = "kx-test-" + std::to_string(getpid());
  name.copy(address.sun_path + 1,
            sizeof(address.sun_path) - 1);  // behind a zero, which makes it an abstract one
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  ASSERT_EQ(bind(listening, reinterpret_cast<const sockaddr *>(&address), size), 0);
  ASSERT_EQ(listen(listening, 1), 0);
  setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:abstract=" + name).c_str(), 1);
  const auto bus = makeBus();
  bus->observe([](GDBusConnection *) {});
  int called = -1;
  EXPECT_TRUE(loopUntil([&] { return (called = accept(listening, nullptr, nullptr)) >= 0; }));
  close(called);
  close(listening);
}

TEST(SystemBusOpening, PreparesNothingWhereThereIsNoBus) {
  ASSERT_EQ(g_type_class_peek(G_TYPE_SOCKET), nullptr) << "too late: run this test in a process of its own";
  const TemporaryDirectory directory;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + directory.path() + "/none").c_str(), 1);
  const auto bus = std::make_shared<SystemBus>(LinuxRunLoop::of(g_main_context_default()), 1U);
  bus->observe([](GDBusConnection *) {});
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);  // two attempts
  while (std::chrono::steady_clock::now() < end) {
    g_main_context_iteration(nullptr, FALSE);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(g_type_class_peek(G_TYPE_SOCKET), nullptr);
}

TEST(SystemBusOpening, LeavesToTheHostWhatBecomesOfSIGPIPE) {
  ASSERT_EQ(g_type_class_peek(G_TYPE_SOCKET), nullptr) << "too late: run this test in a process of its own";
  const TemporaryDirectory directory;
  std::ofstream(directory.path() + "/file");  // to which nobody listens
  setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + directory.path() + "/file").c_str(), 1);
  struct sigaction ofTheHost {};
  ofTheHost.sa_handler = [](int) {};
  ofTheHost.sa_flags = SA_RESTART;
  ASSERT_EQ(sigaction(SIGPIPE, &ofTheHost, nullptr), 0);
  const auto bus = std::make_shared<SystemBus>(LinuxRunLoop::of(g_main_context_default()), 1U);
  bus->observe([](GDBusConnection *) {});
  EXPECT_TRUE(eventually([] {
    g_main_context_iteration(nullptr, FALSE);
    return g_type_class_peek(G_TYPE_SOCKET) != nullptr;
  }));
  struct sigaction found {};
  ASSERT_EQ(sigaction(SIGPIPE, nullptr, &found), 0);
  EXPECT_EQ(found.sa_handler, ofTheHost.sa_handler);
  EXPECT_NE(found.sa_flags & SA_RESTART, 0);
}

}  // namespace
}  // namespace kx
