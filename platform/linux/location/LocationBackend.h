#pragma once

#include <gio/gio.h>

#include <chrono>
#include <memory>
#include <string>

#include "platform/linux/location/LocationClient.h"

namespace kx {

/// Which service positions come from.
struct LocationBackend {
  /// Its name on the bus, which starts it where it does not run.
  const char *serviceName;
  /// Makes a client at the service whose unique name is `owner`. Positions that come faster than
  /// `betweenPositions` are left out, except the last one. `listener` is not kept alive.
  std::shared_ptr<LocationClient> (*makeClient)(GDBusConnection *connection, const std::string &owner,
                                                GMainContext *mainContext,
                                                std::chrono::milliseconds betweenPositions,
                                                std::weak_ptr<LocationClient::Listener> listener);

  /// GeoClue, on the system bus.
  static const LocationBackend geoClue;
  /// The portal of a sandbox, on the session's bus: it asks GeoClue on the application's behalf.
  static const LocationBackend portal;
};

}  // namespace kx
