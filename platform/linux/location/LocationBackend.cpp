#include "platform/linux/location/LocationBackend.h"

#include <utility>

#include "platform/linux/location/GeoClueClient.h"
#include "platform/linux/location/PortalLocationClient.h"

namespace kx {

namespace {

template <class Client>
std::shared_ptr<LocationClient> make(GDBusConnection *connection, const std::string &owner,
                                     GMainContext *mainContext, std::chrono::milliseconds betweenPositions,
                                     std::weak_ptr<LocationClient::Listener> listener) {
  return std::make_shared<Client>(connection, owner, mainContext, betweenPositions, std::move(listener));
}

}  // namespace

const LocationBackend LocationBackend::geoClue{GeoClueClient::serviceName, &make<GeoClueClient>};
const LocationBackend LocationBackend::portal{PortalLocationClient::serviceName, &make<PortalLocationClient>};

}  // namespace kx
