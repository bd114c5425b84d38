#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KXPublisher/platform/Telephony.h"
#include "KXPublisher/platform/simulated/SimulatedScheduler.h"

namespace kx {

/// The SIM's operator, as the test describes it.
struct SimulatedCarrier {
  std::optional<std::string> mobileCountryCode;
  std::optional<std::string> mobileNetworkCode;
};

/// The modem and its SIM.
class KX_EXPORT SimulatedTelephonyService : public TelephonyService {
 public:
  explicit SimulatedTelephonyService(SimulatedScheduler &scheduler) : scheduler_(scheduler) {}

  bool present = true;  ///< whether telephony objects can be made
  std::optional<SimulatedCarrier> carrier = SimulatedCarrier{"310", "410"};
  std::optional<std::string> radioAccessTechnology = "CTRadioAccessTechnologyLTE";
  int made = 0;  ///< how many telephony objects were made

  /// Another SIM, or none: every telephony object alive reports it, on a worker thread.
  void changeCarrier(std::optional<SimulatedCarrier> newCarrier);

  /// How many telephony objects there are.
  std::size_t alive() const;
  /// No telephony object reports any more.
  void removeNotifiers();

  std::shared_ptr<TelephonyNetworkInfo> makeTelephonyNetworkInfo() override;

 private:
  class NetworkInfo;

  std::shared_ptr<Carrier> readCarrier() const;

  SimulatedScheduler &scheduler_;
  std::vector<std::weak_ptr<NetworkInfo>> networkInfos_{};
};

}  // namespace kx
