#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "tests/providers/TestProvider.h"
#include "tests/support/FailingDispatch.h"
#include "tests/support/SimulatedTest.h"

// Requests that the platform has lost, for want of memory say.

namespace kx {
namespace {

using KXDataLostRequestTest = SimulatedTest;

TEST_F(KXDataLostRequestTest, RepeatsARequestThatWasLostToThePlatformWhenItIsAsked) {
  const auto provider = TestProvider::make();
  provider->whileComputing = [] { throw std::runtime_error("no memory"); };
  EXPECT_THROW(device.runReadyTasks(), std::runtime_error);
  EXPECT_TRUE(provider->facts().empty());
  provider->repeatLostRequest();
  device.runReadyTasks();
  EXPECT_EQ(provider->facts(), (Dictionary{{"computed", 2}}));
  provider->repeatLostRequest();  // there is no other
  device.runReadyTasks();
  EXPECT_EQ(provider->computed, 2);
}

TEST_F(KXDataLostRequestTest, RepeatsALostRequestOnlyAsFarAsItIsPermitted) {
  const auto provider = TestProvider::make();
  provider->whileComputing = [] { throw std::runtime_error("no memory"); };
  EXPECT_THROW(device.runReadyTasks(), std::runtime_error);
  provider->permitted = false;
  provider->repeatLostRequest();
  device.runReadyTasks();
  EXPECT_EQ(provider->computed, 1);
  provider->permitted = true;  // of which whoever grants it tells
  provider->repeatLostRequest();
  device.runReadyTasks();
  EXPECT_EQ(provider->computed, 1);
}

TEST_F(KXDataLostRequestTest, RepeatsALostResetAsAReset) {
  const auto provider = TestProvider::make();
  device.runReadyTasks();
  EXPECT_FALSE(provider->facts().empty());
  const auto dispatch = std::make_shared<FailingDispatch>(device.scheduler);
  device.replaced.dispatch = dispatch;
  EXPECT_THROW(provider->resetData(), std::runtime_error);
  provider->repeatLostRequest();  // lost again, and not for ever
  dispatch->fails = false;
  provider->repeatLostRequest();
  device.runReadyTasks();
  EXPECT_TRUE(provider->facts().empty());
  EXPECT_EQ(provider->computed, 1);
}

TEST_F(KXDataLostRequestTest, RepeatsNoRequestThatALaterOneHasOvertaken) {
  const auto provider = TestProvider::make();
  const auto dispatch = std::make_shared<FailingDispatch>(device.scheduler);
  device.runReadyTasks();
  device.replaced.dispatch = dispatch;
  EXPECT_THROW(provider->resetData(), std::runtime_error);
  dispatch->fails = false;
  provider->updateData();
  device.runReadyTasks();
  provider->repeatLostRequest();
  device.runReadyTasks();
  EXPECT_EQ(provider->facts(), (Dictionary{{"computed", 2}}));
}

TEST_F(KXDataLostRequestTest, RepeatsNoRequestThatIsAMistake) {
  const auto provider = TestProvider::make();
  provider->whileComputing = [] { throw std::logic_error("a mistake"); };
  EXPECT_THROW(device.runReadyTasks(), std::logic_error);
  provider->repeatLostRequest();
  device.runReadyTasks();
  EXPECT_EQ(provider->computed, 1);
}

}  // namespace
}  // namespace kx
