#pragma once

#include <memory>
#include <optional>

#include "platform/Telephony.h"

// The services that this platform does not have: their messages' keys stay absent.

namespace kx {

class AbsentTelephony : public TelephonyService {
 public:
  std::shared_ptr<TelephonyNetworkInfo> makeTelephonyNetworkInfo() override { return nullptr; }
};

}  // namespace kx
