#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// The operator of the subscriber's home network, as it was when it was read (CTCarrier). May be asked from
/// any thread.
class KX_EXPORT Carrier : public Object {
 public:
  /// `mobileCountryCode`: three digits, "262"; absent when unknown.
  virtual std::optional<std::string> mobileCountryCode() = 0;

  /// `mobileNetworkCode`: two or three digits, "01"; absent when unknown.
  virtual std::optional<std::string> mobileNetworkCode() = 0;
};

/// The state of the mobile network subscription (CTTelephonyNetworkInfo). May be used from any thread, and
/// never waits for a modem: what is not known yet is absent, and its arrival is reported.
class KX_EXPORT TelephonyNetworkInfo : public Object {
 public:
  using SubscriberCellularProviderDidUpdateNotifier = std::function<void(const std::shared_ptr<Carrier> &)>;

  /// `subscriberCellularProvider`: a null pointer when there is no subscription, or none is known yet.
  virtual std::shared_ptr<Carrier> subscriberCellularProvider() = 0;

  /// `setSubscriberCellularProviderDidUpdateNotifier:`: what to call, on a thread of the platform's choosing,
  /// when the subscriber's carrier changes; its argument may be a null pointer. Replaces an earlier notifier.
  virtual void setSubscriberCellularProviderDidUpdateNotifier(
      SubscriberCellularProviderDidUpdateNotifier notifier) = 0;

  /// `currentRadioAccessTechnology`: the technology in use now, "CTRadioAccessTechnologyLTE"; absent when the
  /// device is not registered with a network.
  virtual std::optional<std::string> currentRadioAccessTechnology() = 0;
};

/// How the telephony objects are made.
class KX_EXPORT TelephonyService {
 public:
  virtual ~TelephonyService() = default;

  /// A new telephony object; a null pointer when the device has no telephony service. Returns at once, on any
  /// thread. The object reports until it is released.
  virtual std::shared_ptr<TelephonyNetworkInfo> makeTelephonyNetworkInfo() = 0;
};

}  // namespace kx
