#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "KXPublisher/platform/AdvertisingIdentifierManager.h"
#include "KXPublisher/platform/Bundle.h"
#include "KXPublisher/platform/LocationService.h"
#include "KXPublisher/platform/NetworkReachability.h"
#include "KXPublisher/platform/NotificationCenter.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/Telephony.h"
#include "KXPublisher/platform/linux/LinuxHost.h"
#include "platform/linux/LinuxPlatform.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/platform/linux/threads/ThreadFacts.h"
#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

MATCHER_P(ContainsOnce, part, "") {
  const std::string &text = arg;
  const std::size_t first = text.find(part);
  return first != std::string::npos && text.find(part, first + 1) == std::string::npos;
}

constexpr const char *identifier = "6d92078a-8246-4ba4-ae5b-76104861e7dc";

TEST(LinuxHost, GivesThePlatformItsOptions) {
  LinuxHostOptions options;
  options.advertisingIdentifier = identifier;
  options.advertisingTrackingEnabled = false;
  options.backgroundRefreshStatus = BackgroundRefreshStatus::restricted;
  EXPECT_TRUE(LinuxHost::setOptions(options));
  Platform &platform = Platform::current();
  const auto manager = platform.advertising().sharedManager();
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(manager->advertisingIdentifier(), identifier);
  EXPECT_FALSE(manager->isAdvertisingTrackingEnabled());
  EXPECT_EQ(platform.sharedApplication()->backgroundRefreshStatus(), BackgroundRefreshStatus::restricted);
}

TEST(LinuxHost, WithoutOptionsThereIsNoAdvertisingIdentifier) {
  Platform &platform = Platform::current();
  const auto manager = platform.advertising().sharedManager();
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(manager->advertisingIdentifier(), std::nullopt);
  EXPECT_TRUE(manager->isAdvertisingTrackingEnabled());
  EXPECT_EQ(platform.sharedApplication()->backgroundRefreshStatus(), BackgroundRefreshStatus::available);
}

TEST(LinuxHost, AnIdentifierThatIsNoTextIsAbsent) {
  LinuxHostOptions options;
  options.advertisingIdentifier = "\xff";
  EXPECT_TRUE(LinuxHost::setOptions(options));
  EXPECT_EQ(Platform::current().advertising().sharedManager()->advertisingIdentifier(), std::nullopt);
}

TEST(LinuxHost, RefusesOptionsThatComeTooLate) {
  Platform &platform = Platform::current();
  LinuxHostOptions options;
  options.advertisingIdentifier = identifier;
  EXPECT_FALSE(LinuxHost::setOptions(options));
  EXPECT_FALSE(LinuxHost::setOptions(options));
  EXPECT_EQ(platform.advertising().sharedManager()->advertisingIdentifier(), std::nullopt);
}

TEST(LinuxHost, TheLastOptionsInTimeCount) {
  LinuxHostOptions options;
  options.advertisingIdentifier = "first";
  EXPECT_TRUE(LinuxHost::setOptions(options));
  options.advertisingIdentifier = "last";
  EXPECT_TRUE(LinuxHost::setOptions(options));
  EXPECT_EQ(Platform::current().advertising().sharedManager()->advertisingIdentifier(), "last");
}

TEST(LinuxHost, AnnouncesTheApplicationsTransitionsOnTheMainThread) {
  Platform &platform = Platform::current();
  std::vector<std::string> posted;
  for (const char *const name :
       {UIApplicationDidEnterBackgroundNotification, UIApplicationWillEnterForegroundNotification}) {
    platform.defaultNotificationCenter().addObserverForName(
        name, platform.sharedApplication(), platform.mainOperationQueue(),
        [&](const std::shared_ptr<Notification> &notification) {
          EXPECT_TRUE(platform.dispatch().isMainThread());
          posted.push_back(notification->name());
        });
  }
  const MainThread thread;
  std::thread([] {
    LinuxHost::didEnterBackground();
    LinuxHost::didEnterBackground();
  }).join();
  EXPECT_TRUE(thread.runUntil([&posted] { return !posted.empty(); }));
  LinuxHost::willEnterForeground();
  LinuxHost::willEnterForeground();
  EXPECT_THAT(posted, ElementsAre(UIApplicationDidEnterBackgroundNotification,
                                  UIApplicationWillEnterForegroundNotification));
}

TEST(LinuxHost, AnObserverThatThrowsDoesNotReachTheHost) {
  Platform &platform = Platform::current();
  platform.defaultNotificationCenter().addObserverForName(
      UIApplicationDidEnterBackgroundNotification, nullptr, platform.mainOperationQueue(),
      [](const std::shared_ptr<Notification> &) { throw std::runtime_error("an observer's reason"); });
  const MainThread thread;
  testing::internal::CaptureStderr();
  LinuxHost::didEnterBackground();
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("ended a task: an observer's reason\n"));
}

TEST(LinuxPlatform, IsMadeWithoutAThread) {
  const std::size_t before = threadsCount();
  Platform::current();
  EXPECT_EQ(threadsCount(), before);
}

TEST(LinuxPlatform, HasItsServicesAlsoWhereNoBusIs) {
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
  Platform &platform = Platform::current();
  const auto networkInfo = platform.telephony().makeTelephonyNetworkInfo();
  ASSERT_NE(networkInfo, nullptr);
  EXPECT_EQ(networkInfo->subscriberCellularProvider(), nullptr);
  EXPECT_EQ(networkInfo->currentRadioAccessTechnology(), std::nullopt);
  LocationService &location = platform.location();
  EXPECT_FALSE(location.locationServicesEnabled());
  EXPECT_EQ(location.authorizationStatus(), AuthorizationStatus::notDetermined);
  EXPECT_NE(platform.networkReachability().createWithAddress({16, AF_INET}), nullptr);
}

TEST(LinuxPlatform, HasNoLocationManagerForAHostWithoutAnIdentifier) {
  EXPECT_EQ(Platform::current().location().makeLocationManager(), nullptr);
}

TEST(LinuxPlatform, KnowsAHostWithoutAGApplicationByWhatItSays) {
  LinuxHostOptions options;
  options.applicationIdentifier = "org.example.QtHost";
  EXPECT_TRUE(LinuxHost::setOptions(options));
  const auto bundle = Platform::current().bundles().mainBundle();
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle->bundleIdentifier(), "org.example.QtHost");
  EXPECT_NE(Platform::current().location().makeLocationManager(), nullptr);
}

TEST(LinuxPlatform, GivesOutTheHostsGeocoder) {
  class HostsGeocoder : public Geocoder {
    void reverseGeocodeLocation(const Location & /*location*/, CompletionHandler /*handler*/) override {}
  };
  LinuxHostOptions options;
  options.geocoder = std::make_shared<HostsGeocoder>();
  EXPECT_TRUE(LinuxHost::setOptions(options));
  EXPECT_EQ(Platform::current().location().makeGeocoder(), options.geocoder);
}

TEST(LinuxPlatform, GivesOutItsOwnGeocoderOtherwise) {
  EXPECT_NE(Platform::current().location().makeGeocoder(), nullptr);
}

// ---- In a process of its own

TEST(LinuxConsole, PrintsALineWhateverGLibsDebuggingVariablesSay) {
  const std::string line = "[KX Error] Br\u00f6tchen %s %d \u2603\n";
  for (const char *const variable :
       {"G_MESSAGES_DEBUG=", "G_MESSAGES_DEBUG=all", "G_MESSAGES_DEBUG=Other", "G_DEBUG=fatal-warnings"}) {
    ChildProcess child({HOST_PROGRAM, "console"}, {variable, "LC_ALL=C.UTF-8"});
    EXPECT_EQ(child.exitCode(), 0) << variable;
    EXPECT_EQ(child.output(), "");
    const std::string errors = child.errors();
    EXPECT_THAT(errors, EndsWith(line)) << variable;
    EXPECT_THAT(errors, StartsWith("KXPublisher-Message: ")) << variable;
  }
}

TEST(LinuxHostProgram, EndsInTheMiddleOfWork) {
  // The library's threads run on while the process ends; nothing that they use is torn down before.
  for (int i = 0; i < 20; ++i) {
    ChildProcess child({HOST_PROGRAM, "exit"});
    EXPECT_EQ(child.exitCode(), 0);
    EXPECT_EQ(child.errors(), "");
  }
}

TEST(LinuxHostProgram, DoesNothingInAForkedChildButSaySoOnce) {
  const std::string line =
      "[KX Error] The process was forked after the first call. Nothing is done in this one.";
  const TemporaryDirectory directory;
  const std::string noBus = "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + directory.path() + "/none";
  ChildProcess forking({HOST_PROGRAM, "fork"}, {noBus});
  EXPECT_EQ(forking.exitCode(), 0) << forking.errors();
  EXPECT_EQ(forking.output(), "work in process of the call\n");
  EXPECT_THAT(forking.errors(), ContainsOnce(line));

  ChildProcess daemon({HOST_PROGRAM, "daemon"}, {noBus});
  EXPECT_EQ(daemon.exitCode(), 0) << daemon.errors();  // and the child has ended, which printed there, too
  EXPECT_EQ(daemon.output(), "");
  EXPECT_THAT(daemon.errors(), ContainsOnce(line));
}

TEST(LinuxHostProgram, GathersTheFactsOfDeviceAndHost) {
  const TemporaryDirectory data;
  std::filesystem::create_directories(data.path() + "/applications");
  std::ofstream(data.path() + "/applications/org.example.Host.desktop")
      << "[Desktop Entry]\nType=Application\nName=Host\nExec=/usr/bin/example-host %U\n";
  ChildProcess child({HOST_PROGRAM, "start"},
                     {"XDG_DATA_HOME=" + data.path(), "LC_ALL=de_CH.UTF-8", "LANGUAGE=de_CH:en"});
  EXPECT_EQ(child.exitCode(), 0) << child.errors();
  const std::string message = child.output();
  EXPECT_THAT(message, HasSubstr(std::string("\"ifa\":\"") + identifier + "\""));
  EXPECT_THAT(message, HasSubstr("\"dnt\":1"));
  EXPECT_THAT(message, HasSubstr("\"languages\":[\"de-CH\",\"en\"]"));
  EXPECT_THAT(message, HasSubstr("\"deviceCategory\":\""));
  EXPECT_THAT(message, HasSubstr("\"name\":\"" + *LinuxSystemName().machine() + "\""));
  EXPECT_THAT(message, HasSubstr("\"platform\":\"" + *std::make_shared<LinuxDevice>()->systemName() + "\""));
  EXPECT_THAT(message, HasSubstr("\"bundleId\":\"org.example.Host\""));
  EXPECT_THAT(message, HasSubstr("\"asn\":\"example-host\""));
}

}  // namespace
}  // namespace kx
