#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>

#include "platform/linux/facts/FlatpakSandbox.h"
#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

constexpr const char *geoClue = "org.freedesktop.GeoClue2";

std::optional<FlatpakSandbox> sandboxWith(const std::string &file) {
  const TemporaryDirectory root;
  std::ofstream(root.path() + "/.flatpak-info") << file;
  return FlatpakSandbox::ofProcess(root.path());
}

TEST(FlatpakSandbox, IsNoneWithoutItsFile) {
  const TemporaryDirectory root;
  EXPECT_FALSE(FlatpakSandbox::ofProcess(root.path()));
  EXPECT_FALSE(FlatpakSandbox::ofProcess()) << "these tests do not run in one";
}

TEST(FlatpakSandbox, KnowsItsApplication) {
  const auto sandbox = sandboxWith(
      "[Application]\nname=org.example.Host\nruntime=runtime/org.example.Platform/x86_64/44\n\n"
      "[Instance]\ninstance-id=12345\n\n[Context]\nshared=network;ipc;\nsockets=wayland;\n");
  ASSERT_TRUE(sandbox);
  EXPECT_EQ(sandbox->applicationIdentifier(), "org.example.Host");
  EXPECT_FALSE(sandbox->reachesSystemService(geoClue));
}

TEST(FlatpakSandbox, IsOneWhateverItsFileSays) {
  for (const std::string &file : {std::string("\n"), std::string("no key file"),
                                  std::string("[Application]\n"), std::string("[Application]\nname=\n"),
                                  std::string("[Application]\nname=\xff\xfe\n"), std::string(1000, '\0')}) {
    const auto sandbox = sandboxWith(file);
    ASSERT_TRUE(sandbox) << file;
    EXPECT_EQ(sandbox->applicationIdentifier(), std::nullopt) << file;
    EXPECT_FALSE(sandbox->reachesSystemService(geoClue)) << file;
  }
}

TEST(FlatpakSandbox, ReachesTheServicesThatItsPolicyNames) {
  const auto sandbox = sandboxWith(
      "[Context]\nsockets=x11;\n[System Bus Policy]\norg.freedesktop.GeoClue2=talk\norg.example.Own=own\n"
      "org.example.Seen=see\norg.example.None=none\n[Session Bus Policy]\norg.example.Session=talk\n");
  EXPECT_TRUE(sandbox->reachesSystemService(geoClue));
  EXPECT_TRUE(sandbox->reachesSystemService("org.example.Own"));
  for (const char *const name : {"org.example.Seen", "org.example.None", "org.example.Session",
                                 "org.freedesktop.GeoClue2.Below", "org.freedesktop.GeoClue", "org"}) {
    EXPECT_FALSE(sandbox->reachesSystemService(name)) << name;
  }
}

TEST(FlatpakSandbox, APolicyMayNameAllBelowAName) {
  const auto sandbox = sandboxWith("[System Bus Policy]\norg.freedesktop.*=talk\norg.example.Seen.*=see\n");
  EXPECT_TRUE(sandbox->reachesSystemService(geoClue));
  EXPECT_TRUE(sandbox->reachesSystemService("org.freedesktop"));
  EXPECT_TRUE(sandbox->reachesSystemService("org.freedesktop.a.b.c"));
  for (const char *const name : {"org.freedesktopper.A", "org", "com.example", "org.example.Seen.A", ""}) {
    EXPECT_FALSE(sandbox->reachesSystemService(name)) << name;
  }
}

TEST(FlatpakSandbox, MayHaveTheWholeSystemBus) {
  EXPECT_TRUE(sandboxWith("[Context]\nsockets=x11;system-bus;\n")->reachesSystemService(geoClue));
  EXPECT_FALSE(sandboxWith("[Context]\nsockets=x11;session-bus;\n")->reachesSystemService(geoClue));
}

}  // namespace
}  // namespace kx
