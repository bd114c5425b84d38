#include "KXPublisher/providers/KXAsn.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

class KXAsnTest : public SimulatedTest {
 protected:
  Dictionary facts() {
    const auto provider = KXAsn::sharedInstance();
    device.runReadyTasks();
    return *provider->data()->contents();
  }
};

TEST_F(KXAsnTest, IdentifiesTheHostApplication) {
  EXPECT_EQ(facts(), (Dictionary{{"bundleId", "com.example.Host"}, {"asn", "Host"}}));
}

TEST_F(KXAsnTest, IsEmptyWithoutAMainBundle) {
  device.bundle->present = false;
  EXPECT_TRUE(facts().empty());
}

TEST_F(KXAsnTest, IsEmptyWithoutAnIdentifier) {
  device.bundle->identifier = std::nullopt;
  EXPECT_TRUE(facts().empty());
}

TEST_F(KXAsnTest, LeavesOutAnExecutableThatTheBundleDoesNotName) {
  device.bundle->information.clear();
  EXPECT_EQ(facts(), (Dictionary{{"bundleId", "com.example.Host"}}));
}

TEST_F(KXAsnTest, LeavesOutAnExecutableWithAnEmptyName) {
  device.bundle->information.insert_or_assign("CFBundleExecutable", "");
  EXPECT_EQ(facts(), (Dictionary{{"bundleId", "com.example.Host"}}));
}

TEST_F(KXAsnTest, IsComputedOnceInAProcess) {
  const Dictionary before = facts();
  device.bundle->information = {{"CFBundleExecutable", "Other"}};
  device.application->enterBackground();
  device.application->enterForeground();
  device.advance(86400);
  EXPECT_EQ(facts(), before);
}

TEST_F(KXAsnTest, IsPermittedAndUnmonitored) {
  EXPECT_TRUE(KXAsn::sharedInstance()->hasPermissions());
  EXPECT_FALSE(KXAsn::sharedInstance()->needsMonitoring());
}

}  // namespace
}  // namespace kx
