#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/AdvertisingIdentifierManager.h"
#include "platform/linux/LinuxHost.h"
#include "platform/linux/SystemText.h"

namespace kx {

/// Linux has no identifier for advertising: it is the host's.
class LinuxAdvertising : public AdvertisingIdentifierManager, public AdvertisingService {
 public:
  explicit LinuxAdvertising(const LinuxHostOptions &options)
      : identifier_(options.advertisingIdentifier ? validText(*options.advertisingIdentifier) : std::nullopt),
        trackingEnabled_(options.advertisingTrackingEnabled) {}

  std::shared_ptr<AdvertisingIdentifierManager> sharedManager() override { return strong(*this); }
  std::optional<std::string> advertisingIdentifier() override { return identifier_; }
  bool isAdvertisingTrackingEnabled() override { return trackingEnabled_; }

 private:
  const std::optional<std::string> identifier_;
  const bool trackingEnabled_;
};

}  // namespace kx
