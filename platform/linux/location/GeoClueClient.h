#pragma once

#include <gio/gio.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/linux/bus/BusPeer.h"
#include "platform/linux/location/LocationClient.h"
#include "platform/linux/threads/OneShotTimer.h"

namespace kx {

/// One client object at GeoClue, which has the user's agent ask the user; without an agent there is no answer
/// to its start.
class GeoClueClient : public LocationClient {
 public:
  /// `owner`: the service's unique name. `listener` is not kept alive. Positions that come faster than
  /// `betweenPositions` are left out, except the last one.
  GeoClueClient(GDBusConnection *connection, const std::string &owner, GMainContext *mainContext,
                std::chrono::milliseconds betweenPositions, std::weak_ptr<Listener> listener);

  void start(const std::string &desktopId, std::uint32_t distanceThreshold) override;
  void setDistanceThreshold(std::uint32_t distanceThreshold) override;
  void end() override;

  static constexpr const char *serviceName = "org.freedesktop.GeoClue2";

 private:
  void set(const char *property, GVariant *value) const;
  void deleteAtService() const;

  // They get what the method has returned, or null and the error.
  void whenCreated(GVariant *value, const GError *error);
  void whenStarted(GVariant *value, const GError *error);
  void whenFetched(GVariant *value, const GError *error);
  void locationUpdated(GVariant *parameters);
  void propertiesChanged(GVariant *parameters);
  void fetchNewest();
  /// A function that calls `work`, and keeps this client until it has been called.
  BusPeer::Reply then(void (GeoClueClient::*work)(GVariant *value, const GError *error));

  BusPeer service_;
  const std::chrono::milliseconds betweenPositions_;
  const std::weak_ptr<Listener> listener_;

  std::string desktopId_;
  std::uint32_t distanceThreshold_ = 0;
  bool ended_ = false;
  std::string path_;  ///< empty until the client has been created
  bool started_ = false;
  bool paused_ = false;

  std::string newestLocation_;  ///< the path of the location object that has not been fetched; or empty
  bool fetching_ = false;
  std::int64_t fetchedAt_ = 0;  ///< when the last one was; microseconds of the monotonic clock
  OneShotTimer nextFetch_;
};

}  // namespace kx
