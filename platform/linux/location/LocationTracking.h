#pragma once

#include <gio/gio.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/bus/BusNameWatch.h"
#include "platform/linux/bus/GLibPointers.h"
#include "platform/linux/location/LocationAuthorization.h"
#include "platform/linux/location/LocationBackend.h"
#include "platform/linux/threads/LinuxRunLoop.h"
#include "platform/linux/threads/OneShotTimer.h"

namespace kx {

class LinuxLocationManager;

/// How long things take.
struct GeoClueTimes {
  /// After how long GeoClue is looked for again where it failed, or location services were switched off. By
  /// default as long as from one report to the next.
  std::chrono::milliseconds betweenAttempts = std::chrono::minutes(10);
  /// After how long without an answer the authorization counts as not determined. The answer still counts
  /// when it comes.
  std::chrono::milliseconds forAnswer = std::chrono::seconds(30);
  /// The least time from one position to the next.
  std::chrono::milliseconds betweenPositions = std::chrono::seconds(1);
};

/// Sees to it that a location manager has a client at the location service while it needs one. Used on the
/// main thread only; the manager keeps it.
///
/// A manager needs a client while positions are wanted. The service tells whether the host is authorized only
/// by the answer to a client's start; so a manager whose delegate waits for the authorization needs one too,
/// which is deleted again as soon as the answer has come. When the answer is no, it is asked again
/// - when it appears anew, or updates are to be started;
/// - after a while too when location services were switched off. Not when the host was denied: the user's
///   agent would ask the user again.
///
/// A service that goes away from under a client leaves nothing determined. The bus starts it when it is
/// needed; that it appears by itself is noticed.
class LocationTracking : public Object, public LocationClient::Listener {
 public:
  LocationTracking(const LocationBackend &backend, std::shared_ptr<LinuxRunLoop> mainRunLoop,
                   std::string desktopId, GeoClueTimes times,
                   std::shared_ptr<LocationAuthorization> authorization,
                   std::weak_ptr<LinuxLocationManager> manager);
  ~LocationTracking() override;

  /// There is a connection to the backend's bus, or, when null, none any more.
  void setConnection(GDBusConnection *connection);
  /// What the manager needs may have changed.
  void update();
  /// The manager was told to start updates.
  void start();
  void distanceFilterChanged();

 private:
  bool isNeeded(LinuxLocationManager &manager) const;
  void watchService();
  void release();
  void lookAgain();
  void lookAgainLater();
  void serviceAppeared(const char *owner);
  void serviceVanished();
  void startClient(LinuxLocationManager &manager);
  void endClient();
  /// Notes what is known of the authorization, and tells the delegate when it has changed.
  void settle(LocationAuthorization::State state);

  void clientStarted() override;
  void clientRefused(LocationClient::Refusal refusal) override;
  void clientFailed() override;
  void clientPaused() override;
  void clientResumed() override;
  void clientFound(const Location &location) override;

  const LocationBackend &backend_;
  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  const std::string desktopId_;
  const GeoClueTimes times_;
  const std::shared_ptr<LocationAuthorization> authorization_;
  const std::weak_ptr<LinuxLocationManager> manager_;

  GLibPointer<GDBusConnection> connection_;
  std::optional<BusNameWatch> watch_;  ///< of the service's name
  std::string owner_;                  ///< of the service's name; empty for none
  std::shared_ptr<LocationClient> client_;
  bool answered_ = false;  ///< that owner has said all that it has to say for now
  /// As this manager has found it; another one may be ahead.
  LocationAuthorization::State state_ = LocationAuthorization::State::notDetermined;

  bool paused_ = false;                ///< the client is, by the service
  std::uint64_t stopsWhenPaused_ = 0;  ///< how often updates had been stopped when the delegate had been told
  OneShotTimer nextAttempt_;
  OneShotTimer answerOverdue_;
};

}  // namespace kx
