#pragma once

#include "platform/Telephony.h"

namespace kx {

/// CTTelephonyNetworkInfo. From iOS 13 on, a device with several subscriptions reports the one that carries
/// its data; before that, the one that the system takes for the subscriber's.
class KX_EXPORT AppleTelephonyService : public TelephonyService {
 public:
  std::shared_ptr<TelephonyNetworkInfo> makeTelephonyNetworkInfo() override;
};

}  // namespace kx
