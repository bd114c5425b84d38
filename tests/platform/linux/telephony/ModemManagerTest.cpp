#include <unistd.h>

#include "tests/platform/linux/telephony/TelephonyTest.h"

namespace kx {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// With ModemManager itself and a modem that kx-emulated-modem emulates.
class ModemManagerTest : public TelephonyTest {
 protected:
  void SetUp() override {
    if (access("/usr/sbin/ModemManager", X_OK) != 0) GTEST_SKIP() << "ModemManager is not installed";
  }

  void start(const std::vector<std::string> &arguments = {}) {
    std::vector<std::string> commandLine = {KX_EMULATED_MODEM, "--bus", bus.address()};
    commandLine.insert(commandLine.end(), arguments.begin(), arguments.end());
    emulation = std::make_unique<ChildProcess>(commandLine);
  }

  std::unique_ptr<ChildProcess> emulation;
};

TEST_F(ModemManagerTest, FollowsAModemThroughItsDay) {
  start();
  begin();
  ASSERT_TRUE(technologyBecomes("LTE")) << emulation->errors();
  EXPECT_EQ(code(), "262-01");
  EXPECT_THAT(reported, ElementsAre("262-01"));
  reported.clear();

  emulation->write("technology umts\n");
  ASSERT_TRUE(technologyBecomes("WCDMA"));
  emulation->write("technology none\n");
  ASSERT_TRUE(technologyBecomes("none"));
  emulation->write("technology hspa\n");
  ASSERT_TRUE(technologyBecomes("HSUPA"));
  EXPECT_THAT(reported, IsEmpty());

  emulation->write("sim out\n");
  ASSERT_TRUE(codeBecomes("none"));
  EXPECT_EQ(technology(), "none");
  emulation->write("sim in 310410\n");
  ASSERT_TRUE(codeBecomes("310-410"));
  ASSERT_TRUE(technologyBecomes("HSUPA"));
  EXPECT_THAT(reported, ElementsAre("none", "310-410"));

  emulation->closeInput();
  ASSERT_TRUE(codeBecomes("none"));
  EXPECT_EQ(emulation->exitCode(), 0) << emulation->errors();
}

TEST_F(ModemManagerTest, ReadsWhatIsThereWhenItBegins) {
  start({"--sim", "310410", "--technology", "edge"});
  begin();
  ASSERT_TRUE(technologyBecomes("Edge")) << emulation->errors();
  LinuxTelephony later(mainRunLoop, std::make_shared<SystemBus>(mainRunLoop));
  networkInfo = later.makeTelephonyNetworkInfo();
  EXPECT_EQ(technology(), "none");
  ASSERT_TRUE(technologyBecomes("Edge"));
  EXPECT_EQ(code(), "310-410");
}

TEST_F(ModemManagerTest, AModemThatStartsWithoutASimHasNoCarrier) {
  start({"--sim", "none", "--verbose"});
  begin();
  ASSERT_TRUE(eventually([this] {
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    return emulation->errors().find("AT+CPIN? -> +CME ERROR: 10") != std::string::npos;
  }));
  runForAWhile();
  EXPECT_EQ(code(), "none");
  EXPECT_EQ(technology(), "none");
  EXPECT_THAT(reported, IsEmpty());
  emulation->write("sim in 23430\n");
  EXPECT_TRUE(codeBecomes("234-30"));
}

TEST(EmulatedModemTest, NeedsABusOfItsOwn) {
  ChildProcess program({KX_EMULATED_MODEM});
  EXPECT_EQ(program.exitCode(), 2);
  EXPECT_THAT(program.errors(), HasSubstr("usage: kx-emulated-modem --bus ADDRESS"));
}

}  // namespace
}  // namespace kx
