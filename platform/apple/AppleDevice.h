#pragma once

#include "KXPublisher/platform/Device.h"

namespace kx {

/// UIDevice.
class KX_EXPORT AppleDeviceService : public DeviceService {
 public:
  AppleDeviceService();

  std::shared_ptr<Device> currentDevice() override { return currentDevice_; }

 private:
  const std::shared_ptr<Device> currentDevice_;
};

}  // namespace kx
