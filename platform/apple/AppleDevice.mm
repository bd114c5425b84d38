#include "platform/apple/AppleDevice.h"

#import <UIKit/UIKit.h>

#include <utility>

#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleText.h"

namespace kx {

namespace {

class AppleDevice : public Device {
 public:
  explicit AppleDevice(UIDevice *device) : device_(device) {}

  std::optional<std::string> model() override { return textOf(device_.model); }
  std::optional<std::string> systemName() override { return textOf(device_.systemName); }
  std::optional<std::string> systemVersion() override { return textOf(device_.systemVersion); }
  long userInterfaceIdiom() override { return static_cast<long>(device_.userInterfaceIdiom); }

 private:
  UIDevice *const device_;
};

/// Null too when the system fails to answer.
std::shared_ptr<Device> systemDevice() {
  std::shared_ptr<Device> device;
  runAtBoundary([&device] {
    UIDevice *const current = [UIDevice currentDevice];
    if (current != nil) device = std::make_shared<AppleDevice>(current);
  });
  return device;
}

}  // namespace

std::shared_ptr<Device> AppleDeviceService::currentDevice() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (currentDevice_ != nullptr) return currentDevice_;
  }
  std::shared_ptr<Device> device = systemDevice();
  const std::lock_guard<std::mutex> lock(mutex_);
  if (currentDevice_ == nullptr) currentDevice_ = std::move(device);
  return currentDevice_;
}

}  // namespace kx
