#include "tools/collector/ServerNames.h"

#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <cstring>
#include <memory>

namespace kx::collector {

namespace ip = boost::asio::ip;

namespace {

/// The address of an entry's record, which may be of any family; an unspecified one for none that can be
/// named.
ip::address addressIn(const sockaddr *record) {
  if (record == nullptr) return {};
  if (record->sa_family == AF_INET) {
    sockaddr_in inet{};
    std::memcpy(&inet, record, sizeof inet);
    return ip::address_v4(ntohl(inet.sin_addr.s_addr));
  }
  if (record->sa_family == AF_INET6) {
    sockaddr_in6 inet6{};
    std::memcpy(&inet6, record, sizeof inet6);
    ip::address_v6::bytes_type bytes;
    std::memcpy(bytes.data(), inet6.sin6_addr.s6_addr, bytes.size());
    const ip::address_v6 address(bytes);
    if (!address.is_link_local()) return address;
  }
  return {};
}

}  // namespace

std::vector<std::string> serverNames(const ip::address &address, const std::string &hostName,
                                     const std::vector<ip::address> &interfaces) {
  std::vector<std::string> names = {"localhost", "127.0.0.1", "::1"};
  const auto add = [&names](const std::string &name) {
    if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  };
  if (!address.is_loopback()) add(hostName);
  if (address.is_unspecified()) {
    for (const ip::address &own : interfaces) add(own.to_string());
  } else {
    add(address.to_string());
  }
  return names;
}

std::vector<ip::address> callableAddresses(const ip::address &address,
                                           const std::vector<ip::address> &interfaces,
                                           const ip::address &outward) {
  if (!address.is_unspecified()) return {address};
  std::vector<ip::address> callable;
  const auto add = [&](const ip::address &own) {
    // Who listens on all of IPv6 can be called by IPv4 as well; not the other way round.
    if (own.is_v6() && address.is_v4()) return;
    if (std::find(callable.begin(), callable.end(), own) == callable.end()) callable.push_back(own);
  };
  if (!outward.is_unspecified()) add(outward);
  for (const ip::address &own : interfaces) {
    if (!own.is_loopback()) add(own);
  }
  add(ip::address_v4::loopback());
  return callable;
}

ip::address outwardAddress() {
  // Of a network that is for documentation, so nobody has it; what matters is the way there.
  const ip::udp::endpoint anywhere(ip::make_address_v4("192.0.2.1"), 9);
  boost::asio::io_context io;
  ip::udp::socket socket(io);
  boost::system::error_code error;
  socket.connect(anywhere, error);
  if (error) return {};
  const auto own = socket.local_endpoint(error);
  return error ? ip::address() : own.address();
}

std::vector<ip::address> interfaceAddresses() {
  ifaddrs *first = nullptr;
  if (getifaddrs(&first) != 0) return {};
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> list(first, freeifaddrs);
  std::vector<ip::address> addresses;
  for (const ifaddrs *entry = first; entry != nullptr; entry = entry->ifa_next) {
    const ip::address address = addressIn(entry->ifa_addr);
    if (!address.is_unspecified()) addresses.push_back(address);
  }
  return addresses;
}

}  // namespace kx::collector
