#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kx {

/// The operator that has given out the SIM.
struct HomeOperator {
  std::string countryCode;  ///< three digits
  std::string networkCode;  ///< two or three digits

  bool operator==(const HomeOperator &other) const {
    return countryCode == other.countryCode && networkCode == other.networkCode;
  }
};

/// What is known of the subscription; what is not is absent.
struct Subscription {
  std::optional<HomeOperator> homeOperator;
  std::optional<std::string> radioAccessTechnology;  ///< "CTRadioAccessTechnologyLTE"
};

/// One modem, as far as the subscription is concerned.
struct Modem {
  std::string path;                      ///< of its object
  std::string simPath;                   ///< of its active SIM's object; empty when it has none
  bool isRegistered = false;             ///< with a network
  std::uint32_t accessTechnologies = 0;  ///< MMModemAccessTechnology
};

// These take what a service has sent: of each value any type is possible, and one of a wrong type counts as
// absent.

/// The operator in a SIM's `OperatorIdentifier`; absent for anything else than five or six digits.
std::optional<HomeOperator> homeOperatorOf(std::string_view operatorIdentifier);

/// The same from the answer to `Get`, of type (v).
std::optional<HomeOperator> homeOperatorIn(GVariant *operatorIdentifier);

/// The modem that stands for the device, from the answer to `GetManagedObjects`; absent when there is none.
///
/// Of several it is one with a SIM, rather one that is registered with a network, and among equals the one
/// that ModemManager found first (it numbers them). Nothing else matters, so that it changes only when a
/// modem, a SIM or a registration comes or goes.
std::optional<Modem> modemOf(GVariant *managedObjects);

/// What `modem` tells by itself: its technology, which it has only while it is registered.
std::optional<std::string> radioAccessTechnologyOf(const Modem &modem);

}  // namespace kx
