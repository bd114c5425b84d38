#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "KXPublisher/platform/LocalNotificationCenter.h"
#include "KXPublisher/platform/MainOperationQueue.h"
#include "platform/linux/bus/SystemBus.h"
#include "platform/linux/lifecycle/LinuxApplication.h"
#include "platform/linux/threads/LinuxDispatch.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/support/PrivateBus.h"

namespace kx {

inline constexpr const char *background = UIApplicationDidEnterBackgroundNotification;
inline constexpr const char *foreground = UIApplicationWillEnterForegroundNotification;

/// The application on a message bus of the test's own. The test's thread is the main thread.
class LifecycleTest : public testing::Test {
 protected:
  LifecycleTest() {
    // What GLib is not to be called with ends the test.
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL));
    for (const char *const name : {background, foreground}) {
      center.addObserverForName(name, nullptr, mainOperations,
                                [this](const std::shared_ptr<Notification> &notification) {
                                  EXPECT_TRUE(dispatch.isMainThread());
                                  EXPECT_EQ(notification->object(), application);
                                  posted.push_back(notification->name());
                                });
    }
    systemBus->observe([this](GDBusConnection *connection) { isConnected = connection != nullptr; });
    application->followSleep(*systemBus, LinuxRunLoop::of(g_main_context_default()), "org.example.Host");
  }

  /// Has `block` called when the application enters the background, after `posted` says so.
  void onBackground(std::function<void()> block) {
    center.addObserverForName(background, nullptr, mainOperations,
                              [block = std::move(block)](const std::shared_ptr<Notification> &) { block(); });
  }

  /// Runs the main loop until `condition` holds, which nothing in the loop need announce; false when it never
  /// did.
  static bool loopUntil(const std::function<bool()> &condition) {
    return eventually([&condition] {
      while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
      }
      return condition();
    });
  }

  static void loopFor(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    loopUntil([end] { return std::chrono::steady_clock::now() > end; });
  }

  /// Milliseconds until the main loop has something to do by itself; -1: never.
  static int untilNextDue() {
    GMainContext *const context = g_main_context_default();
    gint priority = 0;
    g_main_context_prepare(context, &priority);
    gint timeout = 0;
    std::vector<GPollFD> descriptors(16);
    g_main_context_query(context, priority, &timeout, descriptors.data(),
                         static_cast<gint>(descriptors.size()));
    return timeout;
  }

  /// Never destroyed, as in a real process.
  static LinuxDispatch &theDispatch() {
    static auto &dispatch = *new LinuxDispatch(LinuxRunLoop::of(g_main_context_default()));
    return dispatch;
  }

  PrivateBus bus;
  const MainThread thread;
  LinuxDispatch &dispatch = theDispatch();
  const std::shared_ptr<OperationQueue> mainOperations = std::make_shared<MainOperationQueue>(dispatch);
  LocalNotificationCenter center{dispatch, mainOperations};
  const std::shared_ptr<SystemBus> systemBus =
      std::make_shared<SystemBus>(LinuxRunLoop::of(g_main_context_default()), 1U);
  std::shared_ptr<LinuxApplication> application =
      std::make_shared<LinuxApplication>(center, dispatch, BackgroundRefreshStatus::available);
  std::vector<std::string> posted;
  bool isConnected = false;  ///< with the bus
};

}  // namespace kx
