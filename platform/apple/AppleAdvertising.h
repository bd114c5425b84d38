#pragma once

#include "KXPublisher/platform/AdvertisingIdentifierManager.h"

namespace kx {

/// ASIdentifierManager.
class AppleAdvertisingService : public AdvertisingService {
 public:
  std::shared_ptr<AdvertisingIdentifierManager> sharedManager() override;
};

}  // namespace kx
