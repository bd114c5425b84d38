#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "KXPublisher/platform/AdvertisingIdentifierManager.h"
#include "platform/linux/facts/SystemText.h"

namespace kx {

/// Linux has no identifier for advertising: it is the host's.
class LinuxAdvertising : public AdvertisingIdentifierManager, public AdvertisingService {
 public:
  LinuxAdvertising(const std::optional<std::string> &identifier, bool trackingEnabled)
      : identifier_(identifier ? validText(*identifier) : std::nullopt), trackingEnabled_(trackingEnabled) {}

  std::shared_ptr<AdvertisingIdentifierManager> sharedManager() override { return strong(*this); }
  std::optional<std::string> advertisingIdentifier() override { return identifier_; }
  bool isAdvertisingTrackingEnabled() override { return trackingEnabled_; }

 private:
  const std::optional<std::string> identifier_;
  const bool trackingEnabled_;
};

}  // namespace kx
