#include "platform/linux/location/LinuxLocationService.h"

#include <utility>

#include "platform/linux/facts/SystemText.h"
#include "platform/linux/location/LinuxLocationManager.h"

namespace kx {

LinuxLocationService::LinuxLocationService(std::shared_ptr<LinuxRunLoop> mainRunLoop,
                                           std::shared_ptr<MessageBus> bus,
                                           const std::optional<std::string> &desktopId,
                                           std::shared_ptr<Geocoder> geocoder, GeoClueTimes times,
                                           const LocationBackend &backend)
    : mainRunLoop_(std::move(mainRunLoop)),
      bus_(std::move(bus)),
      desktopId_(desktopId ? validText(*desktopId) : std::nullopt),
      geocoder_(std::move(geocoder)),
      times_(times),
      backend_(backend) {}

std::shared_ptr<LocationManager> LinuxLocationService::makeLocationManager() {
  if (!desktopId_) return nullptr;
  const auto manager = std::make_shared<LinuxLocationManager>(mainRunLoop_);
  const auto tracking = std::make_shared<LocationTracking>(backend_, mainRunLoop_, *desktopId_, times_,
                                                           authorization_, manager);
  manager->setTracking(tracking);
  bus_->observe([weak = std::weak_ptr<LocationTracking>(tracking)](GDBusConnection *connection) {
    if (const auto alive = weak.lock()) alive->setConnection(connection);
  });
  return manager;
}

}  // namespace kx
