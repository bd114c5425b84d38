#include <string_view>

#include "KXPublisher/platform/InterfaceList.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/foundation/StringFormat.h"
#include "KXPublisher/transport/KXNetworking.h"

namespace kx {

namespace {

constexpr decltype(InterfaceAddress::bytesAfterPort) noAddress{};

/// Wi-Fi and wired, cellular data, VPN tunnels.
bool carriesTraffic(std::string_view interfaceName) {
  for (const std::string_view prefix : {"en", "pdp_ip", "ipsec"}) {
    if (interfaceName.substr(0, prefix.size()) == prefix) return true;
  }
  return false;
}

}  // namespace

std::vector<std::string> KXNetworking::getIPAddresses() {
  std::vector<std::string> addresses;
  for (const InterfaceAddress &entry : Platform::current().interfaceList().getifaddrs()) {
    // Of an IPv6 entry these bytes are the flow information, all zero, so that it is left out.
    const auto &bytes = entry.bytesAfterPort;
    if (bytes == noAddress || entry.family == AddressFamily::other || !carriesTraffic(entry.name)) continue;
    addresses.push_back(stringWithFormat("%d.%d.%d.%d", {bytes[0], bytes[1], bytes[2], bytes[3]}));
  }
  return addresses;
}

}  // namespace kx
