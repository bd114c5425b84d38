#pragma once

#include <memory>
#include <utility>

#include "KXPublisher/platform/Telephony.h"
#include "KXPublisher/platform/foundation/AtomicProperty.h"
#include "KXPublisher/providers/KXData.h"

namespace kx {

namespace constants {
/// Never written: the operator's display name is deliberately not reported.
inline constexpr const char *dataKeyCarrierName = "carrierName";
inline constexpr const char *dataKeyCarrierCode = "carrierCode";
inline constexpr const char *dataKeyRadioAccessTechnology = "radioAccessTechnology";
}  // namespace constants

/// Describes the mobile network subscription: the operator's code and the radio technology in use. Recomputed
/// when the platform reports another carrier and at each return to the foreground.
class KX_EXPORT KXCarrier : public KXData {
 public:
  /// `sharedInstance`
  static std::shared_ptr<KXCarrier> sharedInstance();

  /// `needsMonitoring`: false.
  bool needsMonitoring() const override { return false; }
  /// `hasPermissions`: true, always.
  bool hasPermissions() override { return true; }
  /// `computeData`: the code from `carrierInfo`, the technology asked of `networkInfo` afresh.
  std::shared_ptr<MutableDictionary> computeData() override;

  /// `initCarrierInfo`: makes a new telephony object, reads its carrier and has it report changes. Without
  /// telephony everything stays as it was.
  void initCarrierInfo();

  /// `networkInfo`: the telephony object that `initCarrierInfo` made last.
  std::shared_ptr<TelephonyNetworkInfo> networkInfo() const { return networkInfo_.get(); }
  /// `setNetworkInfo:`
  void setNetworkInfo(std::shared_ptr<TelephonyNetworkInfo> networkInfo) {
    networkInfo_.set(std::move(networkInfo));
  }
  /// `carrierInfo`: the subscriber's carrier as it was read or reported last.
  std::shared_ptr<Carrier> carrierInfo() const { return carrierInfo_.get(); }
  /// `setCarrierInfo:`
  void setCarrierInfo(std::shared_ptr<Carrier> carrierInfo) { carrierInfo_.set(std::move(carrierInfo)); }

 protected:
  KXCarrier() = default;
  void instanceDidStartInit() override;

 private:
  friend class KXData;

  KX_HIDDEN void followCarrier(TelephonyNetworkInfo &networkInfo);

  AtomicProperty<std::shared_ptr<TelephonyNetworkInfo>> networkInfo_;
  AtomicProperty<std::shared_ptr<Carrier>> carrierInfo_;
};

}  // namespace kx
