#pragma once

#include "KXPublisher/platform/Telephony.h"

namespace kx {

/// CTTelephonyNetworkInfo, asked for the one subscription that it takes for the subscriber's:
/// `subscriberCellularProvider`, `currentRadioAccessTechnology`. On a system that no longer has these, their
/// successors, which know every subscription, are asked for the one that carries the device's data.
class KX_EXPORT AppleTelephonyService : public TelephonyService {
 public:
  std::shared_ptr<TelephonyNetworkInfo> makeTelephonyNetworkInfo() override;
};

}  // namespace kx
