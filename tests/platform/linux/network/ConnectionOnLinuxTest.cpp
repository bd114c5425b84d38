#include "KXPublisher/providers/KXConnection.h"
#include "platform/linux/LinuxPlatform.h"
#include "tests/platform/linux/network/ReachabilityTest.h"

namespace kx {
namespace {

class ConnectionOnLinuxTest : public ReachabilityTest {
 protected:
  void SetUp() override {
    ReachabilityTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_TRUE(Platform::install(std::make_unique<LinuxPlatform>(LinuxHostOptions())));
  }

  /// Runs the main loop until the provider's map holds that type of connection; an empty text for none.
  bool tells(const std::string &type) {
    const guint ticks = g_timeout_add(
        10, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    const bool told = thread.runUntil([&type] {
      const auto data = KXConnection::sharedInstance()->data();
      if (data == nullptr) return false;
      const auto contents = data->contents();
      const auto found = contents->find("connectionType");
      return found == nullptr ? type.empty() : *found == Value(type);
    });
    g_source_remove(ticks);
    return told;
  }
};

TEST_F(ConnectionOnLinuxTest, TheProviderFollowsTheNetworkInTheForeground) {
  addLink("wlan0");
  addLink("rmnet0");
  ip("route add default dev wlan0");
  KXConnection::sharedInstance();
  EXPECT_TRUE(tells("WIFI"));
  ip("route replace default dev rmnet0");
  EXPECT_TRUE(tells("CELLULAR"));
  ip("route del default");
  EXPECT_TRUE(tells(""));

  const auto application =
      std::dynamic_pointer_cast<LinuxApplication>(Platform::current().sharedApplication());
  application->didEnterBackground();
  EXPECT_TRUE(thread.runUntil([] { return NetworkNamespace::listeners() == 0; }));
  ip("route add default dev rmnet0");
  EXPECT_TRUE(tells(""));
  application->willEnterForeground();
  EXPECT_TRUE(tells("CELLULAR"));
  ip("route replace default dev wlan0");
  EXPECT_TRUE(tells("WIFI"));
}

}  // namespace
}  // namespace kx
