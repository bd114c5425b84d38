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

  UIDevice *systemDevice() const { return device_; }

 private:
  UIDevice *const device_;
};

/// Null too when the system fails to answer.
std::shared_ptr<Device> systemDevice() {
  std::shared_ptr<Device> device;
  runAtBoundary([&device] { device = deviceOf([UIDevice currentDevice]); });
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

UIDevice *systemDeviceOf(const std::shared_ptr<Device> &device) {
  const auto appleDevice = std::dynamic_pointer_cast<AppleDevice>(device);
  return appleDevice == nullptr ? nil : appleDevice->systemDevice();
}

std::shared_ptr<Device> deviceOf(UIDevice *systemDevice) {
  return systemDevice == nil ? nullptr : std::make_shared<AppleDevice>(systemDevice);
}

}  // namespace kx
