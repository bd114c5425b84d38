#pragma once

#include <atomic>

#include "KXPublisher/platform/LocationManager.h"

namespace kx {

/// What is known of the host's authorization, by whichever location manager found it last. May be used from
/// any thread.
class LocationAuthorization {
 public:
  enum class State {
    notDetermined,  ///< the service has not said, or there is none
    disabled,       ///< the user has location services switched off
    denied,
    authorized,
  };

  void set(State state) { state_ = state; }
  bool servicesEnabled() const { return servicesEnabled(state_); }
  AuthorizationStatus status() const { return status(state_); }

  /// Where nobody says so, location services are not switched on.
  static bool servicesEnabled(State state) { return state == State::denied || state == State::authorized; }
  static AuthorizationStatus status(State state) {
    switch (state) {
      case State::disabled:
      case State::denied:
        return AuthorizationStatus::denied;
      case State::authorized:
        // GeoClue knows no authorization for the background only.
        return AuthorizationStatus::authorizedWhenInUse;
      case State::notDetermined:
        break;
    }
    return AuthorizationStatus::notDetermined;
  }

 private:
  std::atomic<State> state_{State::notDetermined};
};

}  // namespace kx
