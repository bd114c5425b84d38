#include "platform/linux/network/NetworkRoute.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/linux/bus/FileDescriptor.h"
#include "platform/linux/network/NetlinkPart.h"

namespace kx {

namespace {

// Reserved for documentation, so that no network claims them for itself (RFC 5737, RFC 3849).
constexpr std::array<std::uint8_t, 4> anyAddress4{192, 0, 2, 1};
constexpr std::array<std::uint8_t, 16> anyAddress6{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0,
                                                   0,    0,    0,    0,    0, 0, 0, 1};

/// RTM_GETROUTE for one address.
template <std::size_t addressSize>
struct RouteRequest {
  RouteRequest(unsigned char family, const std::array<std::uint8_t, addressSize> &address)
      : destination(address) {
    header.nlmsg_len = sizeof(*this);
    header.nlmsg_type = RTM_GETROUTE;
    header.nlmsg_flags = NLM_F_REQUEST;
    route.rtm_family = family;
    route.rtm_dst_len = 8 * addressSize;
    attribute.rta_type = RTA_DST;
    attribute.rta_len = sizeof(attribute) + addressSize;
  }

  nlmsghdr header{};
  rtmsg route{};
  rtattr attribute{};
  const std::array<std::uint8_t, addressSize> destination;
};
static_assert(sizeof(RouteRequest<4>) == sizeof(nlmsghdr) + sizeof(rtmsg) + sizeof(rtattr) + 4, "no padding");
static_assert(sizeof(RouteRequest<16>) == sizeof(nlmsghdr) + sizeof(rtmsg) + sizeof(rtattr) + 16,
              "no padding");

struct Route {
  unsigned char type = RTN_UNSPEC;  ///< unspecified: there is none
  int interfaceIndex = 0;
};

std::optional<Route> parse(const std::array<char, 4096> &answer, std::size_t size) {
  Route route;
  const auto header = netlinkPart<nlmsghdr>(answer, size, 0);
  if (header.nlmsg_type == NLMSG_ERROR) {
    const int error = netlinkPart<nlmsgerr>(answer, size, NLMSG_HDRLEN).error;
    return error == -EPERM ? std::nullopt : std::optional(route);  // otherwise a way of saying "unreachable"
  }
  if (header.nlmsg_type != RTM_NEWROUTE) return std::nullopt;
  std::size_t offset = NLMSG_HDRLEN;
  route.type = netlinkPart<rtmsg>(answer, size, offset).rtm_type;
  offset += NLMSG_ALIGN(sizeof(rtmsg));
  while (offset < size) {
    const auto attribute = netlinkPart<rtattr>(answer, size, offset);
    if (attribute.rta_len < sizeof(attribute)) break;
    if (attribute.rta_type == RTA_OIF) {
      route.interfaceIndex = netlinkPart<int>(answer, size, offset + RTA_LENGTH(0));
    }
    offset += RTA_ALIGN(attribute.rta_len);
  }
  return route;
}

template <std::size_t addressSize>
std::optional<Route> lookUp(unsigned char family, const std::array<std::uint8_t, addressSize> &address) {
  const FileDescriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
  if (!socket.isOpen()) return std::nullopt;
  const RouteRequest<addressSize> request(family, address);
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  // The kernel has answered by the time that it has taken the request.
  if (sendto(socket.number(), &request, sizeof(request), 0, reinterpret_cast<const sockaddr *>(&kernel),
             sizeof(kernel)) != sizeof(request)) {
    return std::nullopt;
  }
  std::array<char, 4096> answer;
  const ssize_t size = recv(socket.number(), answer.data(), answer.size(), 0);
  return size < 0 ? std::nullopt : parse(answer, static_cast<std::size_t>(size));
}

std::optional<NetworkInterface> interfaceOf(const std::optional<Route> &route, bool mayBeOwnAddress) {
  if (!route) return std::nullopt;
  const bool leads = route->type == RTN_UNICAST || (route->type == RTN_LOCAL && mayBeOwnAddress);
  return leads ? NetworkInterface::withIndex(route->interfaceIndex) : NetworkInterface();
}

}  // namespace

std::optional<NetworkInterface> interfaceOfRouteTo(in_addr address) {
  std::array<std::uint8_t, 4> bytes;
  std::memcpy(bytes.data(), &address, bytes.size());
  return interfaceOf(lookUp(AF_INET, bytes), /*mayBeOwnAddress=*/true);
}

std::optional<NetworkInterface> interfaceOfAnyRoute() {
  const auto runs = [](const std::optional<NetworkInterface> &interface) {
    return interface && interface->isRunning;
  };
  const auto isTunnel = [](const std::optional<NetworkInterface> &interface) {
    return interface && interface->isTunnel;
  };
  const auto first = interfaceOf(lookUp(AF_INET, anyAddress4), /*mayBeOwnAddress=*/false);
  if (runs(first) && !isTunnel(first)) return first;
  const auto second = interfaceOf(lookUp(AF_INET6, anyAddress6), /*mayBeOwnAddress=*/false);
  if (runs(second) && !(runs(first) && isTunnel(second))) return second;
  if (runs(first)) return first;
  return first ? second : first;  // "nowhere" only if both say so
}

}  // namespace kx
