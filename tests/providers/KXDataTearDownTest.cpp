#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "KXPublisher/providers/KXLocation.h"
#include "tests/providers/TestProvider.h"
#include "tests/support/SimulatedTest.h"

// A provider's end, which none meets whose observations a notification center keeps.

namespace kx {
namespace {

/// Keeps no observers, and remembers which one was withdrawn last.
class ForgetfulNotificationCenter : public NotificationCenter {
 public:
  void addObserverForName(const std::string & /*name*/, const std::shared_ptr<Object> & /*object*/,
                          const std::shared_ptr<OperationQueue> & /*queue*/, Handler /*block*/) override {}
  void addObserver(const std::shared_ptr<Object> & /*observer*/, Selector /*selector*/,
                   const std::string & /*name*/, const std::shared_ptr<Object> & /*object*/) override {}
  void removeObserver(const Object &observer) override { withdrawn = &observer; }
  void postNotificationName(const std::string & /*name*/,
                            const std::shared_ptr<Object> & /*object*/) override {}

  const Object *withdrawn = nullptr;
};

class ForgetfulPlatform : public SimulatedPlatform {
 public:
  NotificationCenter &defaultNotificationCenter() override { return center; }

  ForgetfulNotificationCenter center;
};

TEST(KXDataTearDownTest, CancelsWhatWaitsAndWithdrawsItself) {
  auto owned = std::make_unique<ForgetfulPlatform>();
  ForgetfulPlatform &device = *owned;
  ASSERT_TRUE(Platform::install(std::move(owned)));
  std::weak_ptr<TestProvider> provider;
  const Object *identity = nullptr;
  bool ran = false;
  {
    const auto held = TestProvider::make();
    device.runReadyTasks();
    held->computeDataOperationQueue()->addOperation([&ran] { ran = true; });
    provider = held;
    identity = held.get();
  }
  EXPECT_TRUE(provider.expired());
  EXPECT_EQ(device.center.withdrawn, identity);
  device.runReadyTasks();
  EXPECT_FALSE(ran);
}

class OwnLocation : public KXLocation {
 public:
  static std::shared_ptr<OwnLocation> make() { return KXData::make<OwnLocation>(); }
};

TEST(KXDataTearDownTest, EndsTheUpdatesOfThePosition) {
  auto owned = std::make_unique<ForgetfulPlatform>();
  ForgetfulPlatform &device = *owned;
  ASSERT_TRUE(Platform::install(std::move(owned)));
  auto provider = OwnLocation::make();
  device.runReadyTasks();
  const auto managerThatStays = provider->locationManager();
  ASSERT_TRUE(device.locationService.updating());
  provider.reset();
  EXPECT_FALSE(device.locationService.updating());
}

}  // namespace
}  // namespace kx
