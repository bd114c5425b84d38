#include <stdexcept>

#include "KXPublisher/platform/simulated/SimulatedDevice.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

using SimulatedDeviceTest = SimulatedTest;

TEST_F(SimulatedDeviceTest, RefusesAWebViewOffTheMainThread) {
  device.scheduler.globalQueue(DispatchQueuePriority::standard).async([this] {
    EXPECT_THROW(device.webViewService.makeWebView(), std::logic_error);
  });
  device.runReadyTasks();
}

TEST_F(SimulatedDeviceTest, EvaluatesOnlyTheScriptThatItKnows) {
  const auto view = device.webViewService.makeWebView();
  EXPECT_EQ(view->stringByEvaluatingJavaScriptFromString("navigator.userAgent"),
            device.webViewService.userAgent);
  EXPECT_EQ(view->stringByEvaluatingJavaScriptFromString("1+1"), std::nullopt);
}

TEST_F(SimulatedDeviceTest, LetsItsClockRunWithTheVirtualTime) {
  device.clockService.atSwitchOn = 1000;
  device.advance(12.5);
  EXPECT_DOUBLE_EQ(device.clock().timeIntervalSince1970(), 1012.5);
}

TEST_F(SimulatedDeviceTest, FindsTheBundleByItsOwnIdentifierOnly) {
  EXPECT_NE(device.bundle->bundleWithIdentifier("com.example.Host"), nullptr);
  EXPECT_EQ(device.bundle->bundleWithIdentifier("com.example.Other"), nullptr);
  EXPECT_EQ(device.bundle->bundleWithIdentifier(std::nullopt), nullptr);
  device.bundle->identifier = std::nullopt;
  EXPECT_EQ(device.bundle->bundleWithIdentifier(std::nullopt), nullptr);
}

}  // namespace
}  // namespace kx
