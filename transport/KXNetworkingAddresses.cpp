#include <string_view>

#include "KXPublisher/platform/InterfaceList.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/foundation/StringFormat.h"
#include "KXPublisher/transport/KXNetworking.h"

namespace kx {

namespace {

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
    if (entry.family == AddressFamily::other) continue;
    // Of an IPv6 entry these bytes are the flow information, all zero, so that it is left out below.
    const auto &bytes = entry.bytesAfterPort;
    const std::string address = stringWithFormat("%d.%d.%d.%d", {bytes[0], bytes[1], bytes[2], bytes[3]});
    if (carriesTraffic(entry.name) && address != "0.0.0.0") addresses.push_back(address);
  }
  return addresses;
}

}  // namespace kx
