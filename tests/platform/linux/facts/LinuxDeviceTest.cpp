#include <glib.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/facts/LinuxDevice.h"
#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

using namespace std::string_literals;

/// A device whose system files the test writes.
class LinuxDeviceTest : public testing::Test {
 protected:
  void write(const std::string &path, const std::string &contents) {
    std::filesystem::create_directories(std::filesystem::path(root.path() + path).parent_path());
    std::ofstream(root.path() + path, std::ios::binary) << contents;
  }

  TemporaryDirectory root;
  const std::shared_ptr<LinuxDevice> device = std::make_shared<LinuxDevice>(root.path());
};

TEST_F(LinuxDeviceTest, IsAlwaysTheSameDevice) {
  EXPECT_EQ(device->currentDevice(), device);
  EXPECT_EQ(device->currentDevice(), device);
}

TEST_F(LinuxDeviceTest, DescribesALaptop) {
  write("/etc/os-release",
        "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nNAME=\"Debian GNU/Linux\"\nVERSION_ID=\"12\"\n"
        "VERSION=\"12 (bookworm)\"\nID=debian\n");
  write("/sys/class/dmi/id/product_name", "20XW00ABMZ\n");
  write("/sys/class/dmi/id/chassis_type", "10\n");
  EXPECT_EQ(device->model(), "20XW00ABMZ");
  EXPECT_EQ(device->systemName(), "Debian GNU/Linux");
  EXPECT_EQ(device->systemVersion(), "12");
  EXPECT_EQ(device->userInterfaceIdiom(), -1);
}

TEST_F(LinuxDeviceTest, DescribesAPhoneByItsDeviceTree) {
  write("/etc/os-release", "NAME=postmarketOS\nVERSION_ID=v23.12\n");
  write("/proc/device-tree/model", "Pine64 PinePhone (1.2)\0"s);
  write("/proc/device-tree/chassis-type", "handset\0"s);
  EXPECT_EQ(device->model(), "Pine64 PinePhone (1.2)");
  EXPECT_EQ(device->systemName(), "postmarketOS");
  EXPECT_EQ(device->systemVersion(), "v23.12");
  EXPECT_EQ(device->userInterfaceIdiom(), 0);
}

TEST_F(LinuxDeviceTest, KnowsTabletsAndPhonesByTheirChassis) {
  const auto idiomOf = [this](const std::string &path, const std::string &contents) {
    write(path, contents);
    const long idiom = device->userInterfaceIdiom();
    std::filesystem::remove(root.path() + path);
    return idiom;
  };
  const std::string dmi = "/sys/class/dmi/id/chassis_type";
  EXPECT_EQ(idiomOf(dmi, "30\n"), 1);
  EXPECT_EQ(idiomOf(dmi, "11\n"), 0);
  for (const char *const other : {"31\n", "32\n", "10\n", "3\n", "1\n", "110\n", "0x1e\n", "", "-1\n"}) {
    EXPECT_EQ(idiomOf(dmi, other), -1) << other;
  }
  const std::string deviceTree = "/proc/device-tree/chassis-type";
  EXPECT_EQ(idiomOf(deviceTree, "tablet\0"s), 1);
  EXPECT_EQ(idiomOf(deviceTree, "handset\0"s), 0);
  for (const char *const other : {"laptop", "convertible", "watch", "embedded", "Tablet", ""}) {
    EXPECT_EQ(idiomOf(deviceTree, other + "\0"s), -1) << other;
  }
  const std::string machineInfo = "/etc/machine-info";
  EXPECT_EQ(idiomOf(machineInfo, "CHASSIS=tablet\n"), 1);
  EXPECT_EQ(idiomOf(machineInfo, "PRETTY_HOSTNAME=\"Lena's phone\"\nCHASSIS=\"handset\"\n"), 0);
  EXPECT_EQ(idiomOf(machineInfo, "CHASSIS=vm\n"), -1);
  EXPECT_EQ(device->userInterfaceIdiom(), -1);
}

TEST_F(LinuxDeviceTest, TheAdministratorsChassisOverridesTheFirmwares) {
  write("/sys/class/dmi/id/chassis_type", "30\n");
  write("/etc/machine-info", "CHASSIS=laptop\n");
  EXPECT_EQ(device->userInterfaceIdiom(), -1);
  write("/etc/machine-info", "CHASSIS=handset\n");
  EXPECT_EQ(device->userInterfaceIdiom(), 0);
  write("/etc/machine-info", "CHASSIS=\nICON_NAME=phone\n");  // none
  EXPECT_EQ(device->userInterfaceIdiom(), 1);
}

TEST_F(LinuxDeviceTest, WhatNoFileTellsIsAbsent) {
  EXPECT_EQ(device->model(), std::nullopt);
  EXPECT_EQ(device->systemName(), std::nullopt);
  EXPECT_EQ(device->systemVersion(), std::nullopt);
  EXPECT_EQ(device->userInterfaceIdiom(), -1);
}

TEST_F(LinuxDeviceTest, ARollingDistributionHasNoVersion) {
  write("/etc/os-release", "NAME=\"Arch Linux\"\nBUILD_ID=rolling\n");
  EXPECT_EQ(device->systemName(), "Arch Linux");
  EXPECT_EQ(device->systemVersion(), std::nullopt);
}

TEST_F(LinuxDeviceTest, TheVendorsReleaseFileStandsInForTheAdministrators) {
  write("/usr/lib/os-release", "NAME=Vendor\nVERSION_ID=1\n");
  EXPECT_EQ(device->systemName(), "Vendor");
  write("/etc/os-release", "NAME=Own\n");
  EXPECT_EQ(device->systemName(), "Own");
  EXPECT_EQ(device->systemVersion(), std::nullopt);  // the files are not mixed
}

TEST_F(LinuxDeviceTest, InAFlatpakSandboxTheSystemCountsAndNotTheRuntime) {
  write("/etc/os-release", "NAME=Runtime\nVERSION_ID=23.08\n");
  write("/run/host/os-release", "NAME=Mobian\nVERSION_ID=13\n");
  EXPECT_EQ(device->systemName(), "Runtime") << "what another kind of container shows is not asked for";
  write("/.flatpak-info", "[Application]\nname=org.example.Host\n");
  EXPECT_EQ(device->systemName(), "Mobian");
  EXPECT_EQ(device->systemVersion(), "13");
  std::filesystem::remove(root.path() + "/run/host/os-release");
  EXPECT_EQ(device->systemName(), "Runtime");
}

TEST_F(LinuxDeviceTest, ReadsQuotesLikeAShell) {
  const auto nameOf = [this](const std::string &file) {
    write("/etc/os-release", file);
    return device->systemName();
  };
  EXPECT_EQ(nameOf("NAME=Plain\n"), "Plain");
  EXPECT_EQ(nameOf("NAME='Single quoted $HOME'"), "Single quoted $HOME");
  EXPECT_EQ(nameOf("NAME=\"a \\\"b\\\" \\$c \\\\d \\`e\"\n"), "a \"b\" $c \\d `e");
  EXPECT_EQ(nameOf("NAME=\"mixed \"'quotes'\n"), "mixed quotes");
  EXPECT_EQ(nameOf("NAME=\"equals = sign # and hash\"\n"), "equals = sign # and hash");
  EXPECT_EQ(nameOf("  NAME=Indented  \r\n"), "Indented");
  EXPECT_EQ(nameOf("# NAME=Comment\nNAME=Real\n"), "Real");
  EXPECT_EQ(nameOf("NAME=First\nNAME=Last\n"), "Last");
  EXPECT_EQ(nameOf("NAME=Good\nNAME=\"unterminated\n"), "Good");
  EXPECT_EQ(nameOf("MY_NAME=other\nNAMES=other\n"), std::nullopt);
  EXPECT_EQ(nameOf("NAME=\n"), std::nullopt);
  EXPECT_EQ(nameOf("NAME=\"\"\n"), std::nullopt);
  EXPECT_EQ(nameOf("NAME\n=NAME\n\n===\n"), std::nullopt);
  EXPECT_EQ(nameOf("NAME=\"Br\u00f6tchen \u2603\"\n"), "Br\u00f6tchen \u2603");
}

TEST_F(LinuxDeviceTest, TextThatIsNotUTF8IsAbsent) {
  write("/etc/os-release", "NAME=\"caf\xe9\"\nVERSION_ID=\"1\"\n");
  write("/sys/class/dmi/id/product_name", "\xff\xfe\n");
  EXPECT_EQ(device->systemName(), std::nullopt);
  EXPECT_EQ(device->systemVersion(), "1");
  EXPECT_EQ(device->model(), std::nullopt);
  write("/proc/device-tree/model", "known");
  EXPECT_EQ(device->model(), "known");
}

TEST_F(LinuxDeviceTest, ABlankModelIsAbsent) {
  write("/sys/class/dmi/id/product_name", "  \n");
  EXPECT_EQ(device->model(), std::nullopt);
}

TEST_F(LinuxDeviceTest, AFileOfAbsurdSizeIsNotRead) {
  std::string comments;
  while (comments.size() <= 256 * 1024) comments += "# a comment\n";
  write("/etc/os-release", "NAME=Huge\n" + comments);
  EXPECT_EQ(device->systemName(), std::nullopt);
  write("/etc/os-release", "NAME=Large\n" + comments.substr(0, 200 * 1024));
  EXPECT_EQ(device->systemName(), "Large");
}

TEST_F(LinuxDeviceTest, WhatIsNoFileIsNotWaitedFor) {
  std::filesystem::create_directories(root.path() + "/etc/machine-info");
  ASSERT_EQ(mkfifo((root.path() + "/etc/os-release").c_str(), 0600), 0);
  EXPECT_EQ(device->systemName(), std::nullopt);
  EXPECT_EQ(device->userInterfaceIdiom(), -1);
}

TEST(LinuxDevice, ReadsTheSystemsOwnFiles) {
  // GLib reads the same file by its own ways.
  const std::unique_ptr<gchar, void (*)(gpointer)> name(g_get_os_info(G_OS_INFO_KEY_NAME), &g_free);
  const std::unique_ptr<gchar, void (*)(gpointer)> version(g_get_os_info(G_OS_INFO_KEY_VERSION_ID), &g_free);
  ASSERT_NE(name, nullptr);
  const auto device = std::make_shared<LinuxDevice>();
  EXPECT_EQ(device->systemName(), name.get());
  EXPECT_EQ(device->systemVersion(),
            version == nullptr ? std::nullopt : std::optional<std::string>(version.get()));
}

}  // namespace
}  // namespace kx
