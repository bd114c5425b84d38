#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/LocationService.h"
#include "platform/linux/bus/MessageBus.h"
#include "platform/linux/location/LocationAuthorization.h"
#include "platform/linux/location/LocationTracking.h"
#include "platform/linux/threads/LinuxRunLoop.h"

namespace kx {

/// The location services of GeoClue, on the system bus; or in a sandbox that hides it, those of the location
/// portal on the session's.
///
/// Whether the host is authorized, and whether location services are switched on, becomes known only when a
/// location manager has asked the service; until then, and while there is no service, the status is not
/// determined and the services count as switched off.
///
/// GeoClue gives positions as exactly as the device can find them, and always with an accuracy. It says
/// nothing of the altitude's accuracy, which is -1 therefore.
class LinuxLocationService : public LocationService {
 public:
  /// `desktopId`: the host's application identifier, by which GeoClue and the user know it; a host without
  /// one gets no location managers. `backend`: on that `bus`. `geocoder` is the one that is given out; may be
  /// null. Talks to no bus before a location manager is made.
  LinuxLocationService(std::shared_ptr<LinuxRunLoop> mainRunLoop, std::shared_ptr<MessageBus> bus,
                       const std::optional<std::string> &desktopId, std::shared_ptr<Geocoder> geocoder,
                       GeoClueTimes times = {}, const LocationBackend &backend = LocationBackend::geoClue);

  std::shared_ptr<LocationManager> makeLocationManager() override;
  bool locationServicesEnabled() override { return authorization_->servicesEnabled(); }
  AuthorizationStatus authorizationStatus() override { return authorization_->status(); }
  /// Geocoders have no state: it is the same one every time.
  std::shared_ptr<Geocoder> makeGeocoder() override { return geocoder_; }

 private:
  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  const std::shared_ptr<MessageBus> bus_;
  const std::optional<std::string> desktopId_;
  const std::shared_ptr<Geocoder> geocoder_;
  const GeoClueTimes times_;
  const LocationBackend &backend_;
  const std::shared_ptr<LocationAuthorization> authorization_ = std::make_shared<LocationAuthorization>();
};

}  // namespace kx
