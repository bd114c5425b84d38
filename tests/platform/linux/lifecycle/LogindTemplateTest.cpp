#include <csignal>

#include "tests/platform/linux/lifecycle/LifecycleTest.h"

// The same with python3-dbusmock's logind, which others wrote after the real one.

namespace kx {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class LogindTemplateTest : public LifecycleTest {
 protected:
  LogindTemplateTest() {
    const bool isUp = loopUntil([this] { return inhibitors().has_value(); });
    EXPECT_TRUE(isUp) << logind.errors();
  }

  /// Calls a method of logind's object. Its answer as text; absent for an error.
  std::optional<std::string> call(const char *interface, const char *method, GVariant *parameters) {
    GVariant *const answer = g_dbus_connection_call_sync(
        connection.get(), "org.freedesktop.login1", "/org/freedesktop/login1", interface, method, parameters,
        nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr);
    if (answer == nullptr) return std::nullopt;
    gchar *const printed = g_variant_print(answer, FALSE);
    std::string text = printed;
    g_free(printed);
    g_variant_unref(answer);
    return text;
  }
  std::optional<std::string> inhibitors() {
    return call("org.freedesktop.login1.Manager", "ListInhibitors", nullptr);
  }
  bool hasLock() { return inhibitors().value_or("").find("org.example.Host") != std::string::npos; }
  bool comesToHoldLock(bool held) {
    return loopUntil([&] { return hasLock() == held; });
  }
  void prepareForSleep(bool start) {
    GVariantBuilder arguments;
    g_variant_builder_init(&arguments, G_VARIANT_TYPE("av"));
    g_variant_builder_add(&arguments, "v", g_variant_new_boolean(start ? TRUE : FALSE));
    EXPECT_TRUE(
        call("org.freedesktop.DBus.Mock", "EmitSignal",
             g_variant_new("(sssav)", "org.freedesktop.login1.Manager", "PrepareForSleep", "b", &arguments)));
  }

  ChildProcess logind{{"/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind"}};
  const std::shared_ptr<GDBusConnection> connection = bus.connect();
};

TEST_F(LogindTemplateTest, SleepIsDelayedInTheApplicationsName) {
  EXPECT_TRUE(comesToHoldLock(true));
  EXPECT_THAT(inhibitors().value_or(""), HasSubstr("('sleep', 'org.example.Host', 'Sending a last report', "
                                                   "'delay', "));
}

TEST_F(LogindTemplateTest, ATaskDelaysSleepUntilItEnds) {
  ASSERT_TRUE(comesToHoldLock(true));
  BackgroundTaskIdentifier task = invalidBackgroundTask;
  onBackground([&] { task = application->beginBackgroundTaskWithName("task", nullptr); });
  prepareForSleep(true);
  ASSERT_TRUE(loopUntil([&] { return posted.size() == 1; }));
  EXPECT_TRUE(hasLock());
  application->endBackgroundTask(task);
  EXPECT_TRUE(comesToHoldLock(false));
  prepareForSleep(false);
  EXPECT_TRUE(comesToHoldLock(true));
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

TEST_F(LogindTemplateTest, ATaskExpiresBeforeTheDelayOfThisLogindIsOver) {
  ASSERT_TRUE(comesToHoldLock(true));
  EXPECT_TRUE(call("org.freedesktop.DBus.Mock", "AddProperty",
                   g_variant_new("(ssv)", "org.freedesktop.login1.Manager", "InhibitDelayMaxUSec",
                                 g_variant_new_uint64(400'000))));
  // The delay is read with each new lock.
  application->didEnterBackground();
  ASSERT_TRUE(comesToHoldLock(false));
  application->willEnterForeground();
  ASSERT_TRUE(comesToHoldLock(true));
  bool heldAtExpiration = false;
  onBackground(
      [&] { application->beginBackgroundTaskWithName("task", [&] { heldAtExpiration = hasLock(); }); });
  prepareForSleep(true);
  EXPECT_TRUE(comesToHoldLock(false));
  EXPECT_TRUE(heldAtExpiration);
}

TEST_F(LogindTemplateTest, ALogindThatDiesTakesItsSleepWithIt) {
  ASSERT_TRUE(comesToHoldLock(true));
  prepareForSleep(true);
  ASSERT_TRUE(loopUntil([&] { return posted.size() == 1; }));
  logind.sendSignal(SIGKILL);
  ASSERT_TRUE(loopUntil([&] { return posted.size() == 2; }));
  EXPECT_THAT(posted, ElementsAre(background, foreground));
}

}  // namespace
}  // namespace kx
