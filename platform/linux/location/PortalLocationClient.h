#pragma once

#include <gio/gio.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/bus/BusPeer.h"
#include "platform/linux/bus/Portal.h"
#include "platform/linux/location/LocationClient.h"
#include "platform/linux/threads/OneShotTimer.h"

namespace kx {

/// One session at the location portal. The portal knows by itself which application asks, and asks the user.
/// It never pauses a session: when it closes one, the client has failed.
class PortalLocationClient : public LocationClient {
 public:
  PortalLocationClient(GDBusConnection *connection, const std::string &owner, GMainContext *mainContext,
                       std::chrono::milliseconds betweenPositions, std::weak_ptr<Listener> listener);

  void start(const std::string &desktopId, std::uint32_t distanceThreshold) override;
  /// A session keeps the threshold that it was made with: the next one has this.
  void setDistanceThreshold(std::uint32_t distanceThreshold) override;
  void end() override;

  static constexpr const char *serviceName = portal::serviceName;

 private:
  void closeAtService() const;
  void whenCreated(GVariant *value);
  void whenAsked(const GError *error);
  void whenAnswered(GVariant *parameters);
  void whenUpdated(GVariant *parameters);
  void fail();
  void refuse(Refusal refusal);
  void report();

  BusPeer service_;
  const std::string uniqueName_;  ///< this process's, on the bus
  const std::chrono::milliseconds betweenPositions_;
  const std::weak_ptr<Listener> listener_;

  bool ended_ = false;
  std::string session_;  ///< its path; empty until it has been created
  std::string request_;  ///< the path of the question to the user; empty while there is none
  bool started_ = false;
  std::optional<Location> newest_;  ///< that has not been reported
  std::int64_t reportedAt_ = 0;     ///< when the last one was; microseconds of the monotonic clock
  OneShotTimer nextReport_;
};

}  // namespace kx
