#pragma once

#include <cstdint>
#include <string>

#include "KXPublisher/platform/LocationManager.h"
#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// What a location service keeps for somebody who asks for positions, from its creation to its deletion. Used
/// on the main thread only; nothing waits for the service.
///
/// The service asks the user whether the host may know the position, and has no answer for as long as the
/// user is thinking. No call that leads to the start has a time limit, therefore: it costs nothing while it
/// is under way, and asking again would ask the user again.
class LocationClient : public Object {
 public:
  enum class Refusal {
    denied,    ///< the host is not allowed to know the position
    disabled,  ///< the user has location services switched off
  };

  /// Who is told. The client is over after a refusal or a failure.
  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void clientStarted() = 0;
    virtual void clientRefused(Refusal refusal) = 0;
    /// The service does not do what it should, or is gone.
    virtual void clientFailed() = 0;
    /// The service has stopped updates by itself, at the user's wish, and has started them again.
    virtual void clientPaused() = 0;
    virtual void clientResumed() = 0;
    virtual void clientFound(const Location &location) = 0;
  };

  /// Asks for positions, once, on behalf of the application `desktopId`; with a threshold in metres.
  virtual void start(const std::string &desktopId, std::uint32_t distanceThreshold) = 0;
  virtual void setDistanceThreshold(std::uint32_t distanceThreshold) = 0;
  /// Has the service delete what it keeps. The listener is told nothing any more.
  virtual void end() = 0;
};

}  // namespace kx
