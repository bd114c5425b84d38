#pragma once

#include <boost/asio/ip/address.hpp>
#include <string>
#include <vector>

namespace kx::collector {

/// What the collector can be called by when it listens on `address`, for its certificate: always this
/// machine's names for itself; where others can reach it, `hostName` as well, and the address, or, on every
/// address, those of `interfaces`. Each once, in that order.
std::vector<std::string> serverNames(const boost::asio::ip::address &address, const std::string &hostName,
                                     const std::vector<boost::asio::ip::address> &interfaces);

/// What to call the collector by, the best first, when it listens on `address`: that, or, on every address,
/// those of `interfaces`, beginning with `outward`, and loopback last. Each once.
std::vector<boost::asio::ip::address> callableAddresses(
    const boost::asio::ip::address &address, const std::vector<boost::asio::ip::address> &interfaces,
    const boost::asio::ip::address &outward);

/// The IPv4 address by which this machine goes to other networks; unspecified when there is no way to any.
/// Nothing is sent to find out.
boost::asio::ip::address outwardAddress();

/// The IPv4 and IPv6 addresses of this machine's interfaces. Without those that need a zone to be reached by,
/// which no certificate can name.
std::vector<boost::asio::ip::address> interfaceAddresses();

}  // namespace kx::collector
