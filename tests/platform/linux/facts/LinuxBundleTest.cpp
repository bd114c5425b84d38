#include <gio/gio.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/linux/facts/LinuxBundle.h"
#include "tests/platform/linux/threads/ThreadFacts.h"
#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

constexpr const char *identifier = "org.example.Host";

/// An application that is installed as the test says.
class LinuxBundleTest : public testing::Test {
 protected:
  void install(const std::string &dataDirectory, const std::string &entry,
               const std::string &name = identifier) {
    std::filesystem::create_directories(dataDirectory + "/applications");
    std::ofstream(dataDirectory + "/applications/" + name + ".desktop") << entry;
  }
  void installHome(const std::string &commandLine) {
    install(home, "[Desktop Entry]\nType=Application\nName=Host\nExec=" + commandLine + "\n");
  }
  std::optional<Value> executable(const std::optional<std::string> &ofIdentifier = identifier) {
    const auto bundle = std::make_shared<LinuxBundle>(ofIdentifier, environment);
    return bundle->objectForInfoDictionaryKey("CFBundleExecutable");
  }

  TemporaryDirectory directory;
  const std::string home = directory.path() + "/home";
  const std::string system = directory.path() + "/system";
  Environment environment{
      {{"XDG_DATA_HOME", home}, {"XDG_DATA_DIRS", directory.path() + "/other:" + system}}};
};

TEST_F(LinuxBundleTest, HasTheApplicationsIdentifier) {
  const auto bundle = std::make_shared<LinuxBundle>(identifier, environment);
  EXPECT_EQ(bundle->mainBundle(), bundle);
  EXPECT_EQ(bundle->bundleIdentifier(), identifier);
}

TEST_F(LinuxBundleTest, ThereIsNoneWithoutAnIdentifier) {
  const auto bundle = std::make_shared<LinuxBundle>(std::nullopt, environment);
  EXPECT_EQ(bundle->mainBundle(), nullptr);
  EXPECT_EQ(bundle->bundleIdentifier(), std::nullopt);
  EXPECT_EQ(bundle->bundleWithIdentifier(std::nullopt), nullptr);
  EXPECT_EQ(bundle->bundleWithIdentifier(""), nullptr);
  EXPECT_EQ(std::make_shared<LinuxBundle>("", environment)->mainBundle(), nullptr);
  EXPECT_EQ(std::make_shared<LinuxBundle>("org.\xff", environment)->mainBundle(), nullptr);
}

TEST_F(LinuxBundleTest, IsFoundByItsOwnIdentifierOnly) {
  const auto bundle = std::make_shared<LinuxBundle>(identifier, environment);
  EXPECT_EQ(bundle->bundleWithIdentifier(identifier), bundle);
  EXPECT_EQ(bundle->bundleWithIdentifier("org.example.Other"), nullptr);
  EXPECT_EQ(bundle->bundleWithIdentifier("org.example.host"), nullptr);
  EXPECT_EQ(bundle->bundleWithIdentifier(std::nullopt), nullptr);
}

TEST_F(LinuxBundleTest, NamesTheExecutableOfTheDesktopEntry) {
  installHome("host");
  EXPECT_EQ(executable(), Value("host"));
  installHome("/usr/bin/host --gapplication-service %U");
  EXPECT_EQ(executable(), Value("host"));
  installHome("\"/opt/My App/my host\" %f");
  EXPECT_EQ(executable(), Value("my host"));
  installHome("/opt/h\u00f6st");
  EXPECT_EQ(executable(), Value("h\u00f6st"));
  EXPECT_EQ(
      std::make_shared<LinuxBundle>(identifier, environment)->objectForInfoDictionaryKey("CFBundleName"),
      std::nullopt);
}

TEST_F(LinuxBundleTest, KnowsNoExecutableWithoutAUsableEntry) {
  EXPECT_EQ(executable(), std::nullopt);
  for (const char *const commandLine : {"", "\"unterminated", "/usr/bin/", "\xff\xfe", "#only a comment"}) {
    installHome(commandLine);
    EXPECT_EQ(executable(), std::nullopt) << commandLine;
  }
  install(home, "no key file at all");
  EXPECT_EQ(executable(), std::nullopt);
  install(home, "[Desktop Action Other]\nExec=other\n");
  EXPECT_EQ(executable(), std::nullopt);
  install(home, "[Desktop Entry]\nExec=host\n" + std::string(300 * 1024, '#'));
  EXPECT_EQ(executable(), std::nullopt);
}

TEST_F(LinuxBundleTest, TheUsersEntryGoesBeforeTheSystems) {
  install(system, "[Desktop Entry]\nExec=system-host\n");
  EXPECT_EQ(executable(), Value("system-host"));
  installHome("home-host");
  EXPECT_EQ(executable(), Value("home-host"));
}

TEST_F(LinuxBundleTest, LooksWhereTheBaseDirectoriesAreByDefault) {
  environment = Environment({{"HOME", directory.path()}});
  install(directory.path() + "/.local/share", "[Desktop Entry]\nExec=default-host\n");
  EXPECT_EQ(executable(), Value("default-host"));
}

TEST_F(LinuxBundleTest, LooksInNoRelativeDirectory) {
  environment = Environment({{"XDG_DATA_HOME", "home"}, {"XDG_DATA_DIRS", "system::."}});
  installHome("host");
  std::filesystem::current_path(directory.path());
  EXPECT_EQ(executable(), std::nullopt);
}

TEST_F(LinuxBundleTest, AnIdentifierLeadsOutOfNoDirectory) {
  install(directory.path(), "[Desktop Entry]\nExec=outside\n", "../outside");
  installHome("host");
  EXPECT_EQ(executable("../../outside"), std::nullopt);
  EXPECT_EQ(executable("sub/../" + std::string(identifier)), std::nullopt);
}

TEST_F(LinuxBundleTest, StartsNoThreadToReadTheEntry) {
  installHome("host");
  const std::size_t before = threadsCount();
  EXPECT_EQ(executable(), Value("host"));
  EXPECT_EQ(threadsCount(), before);
}

TEST(LinuxBundle, TakesTheIdentifierOfTheDefaultApplication) {
  EXPECT_EQ(LinuxBundle::hostIdentifier(), std::nullopt);
  GApplication *const anonymous = g_application_new(nullptr, G_APPLICATION_NON_UNIQUE);
  g_application_set_default(anonymous);
  EXPECT_EQ(LinuxBundle::hostIdentifier(), std::nullopt);
  GApplication *const named = g_application_new(identifier, G_APPLICATION_NON_UNIQUE);
  g_application_set_default(named);
  EXPECT_EQ(LinuxBundle::hostIdentifier(), identifier);
  EXPECT_EQ(LinuxBundle::hostIdentifier("org.example.Given"), identifier);
  g_application_set_default(anonymous);
  EXPECT_EQ(LinuxBundle::hostIdentifier("org.example.Given"), "org.example.Given");
  g_application_set_default(nullptr);
  g_object_unref(named);
  g_object_unref(anonymous);
}

TEST(LinuxBundle, TakesTheIdentifierThatTheHostHasGivenAndThenTheSandboxs) {
  const TemporaryDirectory root;
  std::ofstream(root.path() + "/.flatpak-info") << "[Application]\nname=org.example.Sandboxed\n";
  const auto sandbox = FlatpakSandbox::ofProcess(root.path());
  EXPECT_EQ(LinuxBundle::hostIdentifier("org.example.Given"), "org.example.Given");
  EXPECT_EQ(LinuxBundle::hostIdentifier("org.example.Given", sandbox), "org.example.Given");
  EXPECT_EQ(LinuxBundle::hostIdentifier(std::nullopt, sandbox), "org.example.Sandboxed");
  EXPECT_EQ(LinuxBundle::hostIdentifier("", sandbox), "org.example.Sandboxed");
  EXPECT_EQ(LinuxBundle::hostIdentifier("\xff", sandbox), "org.example.Sandboxed");
  EXPECT_EQ(LinuxBundle::hostIdentifier("", std::nullopt), std::nullopt);
}

}  // namespace
}  // namespace kx
