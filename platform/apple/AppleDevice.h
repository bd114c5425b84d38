#pragma once

#include <memory>
#include <mutex>

#include "KXPublisher/platform/Device.h"

@class UIDevice;

namespace kx {

/// UIDevice, asked for at the first use: an answer that ends in an exception is reported, which takes a
/// platform that is made already.
class AppleDeviceService : public DeviceService {
 public:
  std::shared_ptr<Device> currentDevice() override;

 private:
  std::mutex mutex_;
  std::shared_ptr<Device> currentDevice_;
};

/// The system's object behind one of the library's, and the other way round; nil and a null pointer stand for
/// each other, and nil for a device of another platform.
UIDevice *_Nullable systemDeviceOf(const std::shared_ptr<Device> &device);
std::shared_ptr<Device> deviceOf(UIDevice *_Nullable systemDevice);

}  // namespace kx
