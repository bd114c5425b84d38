#include "KXPublisher/platform/simulated/SimulatedTelephony.h"

#include <algorithm>
#include <utility>

namespace kx {

namespace {

class ReadCarrier : public Carrier {
 public:
  explicit ReadCarrier(SimulatedCarrier carrier) : carrier_(std::move(carrier)) {}

  std::optional<std::string> mobileCountryCode() override { return carrier_.mobileCountryCode; }
  std::optional<std::string> mobileNetworkCode() override { return carrier_.mobileNetworkCode; }

 private:
  const SimulatedCarrier carrier_;
};

}  // namespace

class SimulatedTelephonyService::NetworkInfo : public TelephonyNetworkInfo {
 public:
  explicit NetworkInfo(SimulatedTelephonyService &service) : service_(service) {}

  std::shared_ptr<Carrier> subscriberCellularProvider() override { return service_.readCarrier(); }
  void setSubscriberCellularProviderDidUpdateNotifier(
      SubscriberCellularProviderDidUpdateNotifier newNotifier) override {
    notifier = std::move(newNotifier);
  }
  std::optional<std::string> currentRadioAccessTechnology() override {
    return service_.radioAccessTechnology;
  }

  SubscriberCellularProviderDidUpdateNotifier notifier;

 private:
  SimulatedTelephonyService &service_;
};

std::shared_ptr<Carrier> SimulatedTelephonyService::readCarrier() const {
  return carrier ? std::make_shared<ReadCarrier>(*carrier) : nullptr;
}

std::shared_ptr<TelephonyNetworkInfo> SimulatedTelephonyService::makeTelephonyNetworkInfo() {
  if (!present) return nullptr;
  ++made;
  networkInfos_.erase(std::remove_if(networkInfos_.begin(), networkInfos_.end(),
                                     [](const auto &weak) { return weak.expired(); }),
                      networkInfos_.end());
  const auto networkInfo = std::make_shared<NetworkInfo>(*this);
  networkInfos_.push_back(networkInfo);
  return networkInfo;
}

std::size_t SimulatedTelephonyService::alive() const {
  return static_cast<std::size_t>(std::count_if(networkInfos_.begin(), networkInfos_.end(),
                                                [](const auto &weak) { return !weak.expired(); }));
}

void SimulatedTelephonyService::removeNotifiers() {
  for (const auto &weak : networkInfos_) {
    if (const auto networkInfo = weak.lock()) networkInfo->notifier = nullptr;
  }
}

void SimulatedTelephonyService::changeCarrier(std::optional<SimulatedCarrier> newCarrier) {
  carrier = std::move(newCarrier);
  for (const auto &weak : networkInfos_) {
    const auto networkInfo = weak.lock();
    if (networkInfo == nullptr || networkInfo->notifier == nullptr) continue;
    scheduler_.globalQueue(DispatchQueuePriority::standard).async([networkInfo, read = readCarrier()] {
      networkInfo->notifier(read);
    });
  }
}

}  // namespace kx
