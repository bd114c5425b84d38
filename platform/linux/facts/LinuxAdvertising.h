#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "KXPublisher/platform/AdvertisingIdentifierManager.h"
#include "KXPublisher/platform/linux/LinuxHost.h"
#include "platform/linux/facts/SystemText.h"

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
