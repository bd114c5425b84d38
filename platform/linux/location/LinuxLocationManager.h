#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "KXPublisher/platform/LocationManager.h"
#include "platform/linux/location/LocationTracking.h"
#include "platform/linux/threads/LinuxRunLoop.h"

namespace kx {

/// What a location manager has been asked for.
struct LocationRequest {
  bool updating = false;    ///< positions are wanted
  std::uint64_t stops = 0;  ///< how often updates were stopped
  double distanceFilter = 0;
  bool hasDelegate = false;
};

/// A location manager whose positions GeoClue finds. Its delegate is told on the main thread, never from
/// within a call of the delegate's.
///
/// At the service there is a client while updates run, and for a moment when a delegate has been set: nothing
/// else tells whether the host is authorized. Like any application's first use of GeoClue, it may have the
/// user's agent ask the user.
class LinuxLocationManager : public LocationManager {
 public:
  explicit LinuxLocationManager(std::shared_ptr<LinuxRunLoop> mainRunLoop)
      : mainRunLoop_(std::move(mainRunLoop)) {}
  ~LinuxLocationManager() override;

  /// The other half of the manager's making.
  void setTracking(std::shared_ptr<LocationTracking> tracking) { tracking_ = std::move(tracking); }

  void setDelegate(const std::weak_ptr<LocationManagerDelegate> &delegate) override;
  void setDistanceFilter(double distanceFilter) override;
  void startUpdatingLocation() override;
  void stopUpdatingLocation() override;
  std::optional<Location> location() override;

  LocationRequest request();

  // What the tracking reports; on the main thread.

  void tellAuthorization(AuthorizationStatus status);
  void tellPaused();
  void tellResumed();
  /// There is a new position, which counts if it still is wanted.
  void found(const Location &location);

 private:
  template <class Report>
  void tellDelegate(Report report);
  /// Has the tracking do something on the main thread.
  void track(void (LocationTracking::*task)());

  const std::shared_ptr<LinuxRunLoop> mainRunLoop_;
  std::shared_ptr<LocationTracking> tracking_;  ///< never changes once it has been set
  std::mutex mutex_;
  LocationRequest request_;  ///< without `hasDelegate`
  std::weak_ptr<LocationManagerDelegate> delegate_;
  std::optional<Location> location_;
};

}  // namespace kx
