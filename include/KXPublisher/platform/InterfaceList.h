#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

enum class AddressFamily { inet, inet6, other };

/// One entry of the system's interface list.
struct InterfaceAddress {
  std::string name;  ///< the interface's name, "en0"
  AddressFamily family = AddressFamily::other;
  /// The four bytes that follow the 16-bit port in the address record, in memory order: the IPv4 address of
  /// an `inet` entry, the flow information of an `inet6` one. Zero for other families.
  std::array<std::uint8_t, 4> bytesAfterPort{};
};

/// The network interfaces' addresses (`getifaddrs`). May be asked from any thread.
class KX_EXPORT InterfaceList {
 public:
  virtual ~InterfaceList() = default;

  /// `getifaddrs`: every entry that has an address record, in the system's order; those that are none of IPv4
  /// may be left out, since there is nothing in them. Empty when there is none, or when the call fails.
  virtual std::vector<InterfaceAddress> getifaddrs() = 0;
};

}  // namespace kx
