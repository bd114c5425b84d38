#pragma once

#include "KXPublisher/platform/Telephony.h"
#include "platform/apple/AppleDeprecated.h"

@class CTCarrier, CTTelephonyNetworkInfo;

namespace kx {

/// CTTelephonyNetworkInfo, asked for the one subscription that it takes for the subscriber's:
/// `subscriberCellularProvider`, `currentRadioAccessTechnology`. On a system that no longer has these, their
/// successors, which know every subscription, are asked for the one that carries the device's data.
class AppleTelephonyService : public TelephonyService {
 public:
  std::shared_ptr<TelephonyNetworkInfo> makeTelephonyNetworkInfo() override;
};

/// The system's objects behind those of this service; nil for a null pointer, and for one of another
/// platform. To name CTCarrier, deprecated since iOS 16, is no new use of it.
KX_DEPRECATED_BEGIN
CTTelephonyNetworkInfo *_Nullable systemNetworkInfoOf(const std::shared_ptr<TelephonyNetworkInfo> &info);
CTCarrier *_Nullable systemCarrierOf(const std::shared_ptr<Carrier> &carrier);
KX_DEPRECATED_END

}  // namespace kx
