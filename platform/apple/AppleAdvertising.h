#pragma once

#include "KXPublisher/platform/AdvertisingIdentifierManager.h"

namespace kx {

/// ASIdentifierManager.
class KX_EXPORT AppleAdvertisingService : public AdvertisingService {
 public:
  std::shared_ptr<AdvertisingIdentifierManager> sharedManager() override;
};

}  // namespace kx
