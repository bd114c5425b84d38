#include "platform/linux/network/LinuxInterfaceList.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "platform/linux/bus/FileDescriptor.h"
#include "platform/linux/facts/SystemText.h"
#include "platform/linux/network/NetlinkPart.h"

namespace kx {

namespace {

/// What the kernel gives at a time, at most.
using Answer = std::array<char, 8192>;

/// RTM_GETADDR for all addresses of IPv4.
struct ListRequest {
  ListRequest() {
    header.nlmsg_len = sizeof(*this);
    header.nlmsg_type = RTM_GETADDR;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    address.ifa_family = AF_INET;
  }

  nlmsghdr header{};
  ifaddrmsg address{};
};

/// An entry of the list, between these offsets. Absent where its name is no text.
std::optional<InterfaceAddress> parse(const Answer &answer, std::size_t offset, std::size_t end) {
  InterfaceAddress entry;
  entry.family = AddressFamily::inet;
  offset += NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(ifaddrmsg));
  while (offset < end) {
    const auto attribute = netlinkPart<rtattr>(answer, end, offset);
    if (attribute.rta_len < sizeof(attribute) || attribute.rta_len > end - offset) break;
    const std::size_t value = offset + RTA_LENGTH(0);
    if (attribute.rta_type == IFA_LOCAL) {
      entry.bytesAfterPort = netlinkPart<decltype(entry.bytesAfterPort)>(answer, end, value);
    } else if (attribute.rta_type == IFA_LABEL) {
      const char *const label = answer.data() + value;
      entry.name.assign(label, strnlen(label, offset + attribute.rta_len - value));
    }
    offset += RTA_ALIGN(attribute.rta_len);
  }
  auto name = validText(std::move(entry.name));
  if (!name) return std::nullopt;
  entry.name = *std::move(name);
  return entry;
}

}  // namespace

std::vector<InterfaceAddress> LinuxInterfaceList::getifaddrs() {
  const FileDescriptor socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
  const ListRequest request;
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  if (!socket.isOpen() ||
      sendto(socket.number(), &request, sizeof(request), 0, reinterpret_cast<const sockaddr *>(&kernel),
             sizeof(kernel)) != sizeof(request)) {
    return {};
  }
  std::vector<InterfaceAddress> addresses;
  Answer answer;
  while (true) {
    // The kernel has the next part of the list ready when one has been taken.
    const ssize_t received = recv(socket.number(), answer.data(), answer.size(), 0);
    if (received <= 0) return {};
    const auto size = static_cast<std::size_t>(received);
    for (std::size_t offset = 0; offset < size;) {
      const auto header = netlinkPart<nlmsghdr>(answer, size, offset);
      if (header.nlmsg_type == NLMSG_DONE) return addresses;
      const bool isWhole = header.nlmsg_len >= sizeof(header) && header.nlmsg_len <= size - offset;
      if (!isWhole || header.nlmsg_type != RTM_NEWADDR) return {};
      if (auto entry = parse(answer, offset, offset + header.nlmsg_len)) {
        addresses.push_back(*std::move(entry));
      }
      offset += NLMSG_ALIGN(header.nlmsg_len);
    }
  }
}

}  // namespace kx
