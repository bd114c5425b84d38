#pragma once

#include <mutex>

#include "KXPublisher/platform/Device.h"

namespace kx {

/// UIDevice, asked for at the first use: an answer that ends in an exception is reported, which takes a
/// platform that is made already.
class KX_EXPORT AppleDeviceService : public DeviceService {
 public:
  std::shared_ptr<Device> currentDevice() override;

 private:
  std::mutex mutex_;
  std::shared_ptr<Device> currentDevice_;
};

}  // namespace kx
