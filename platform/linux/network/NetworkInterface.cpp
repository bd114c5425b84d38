#include "platform/linux/network/NetworkInterface.h"

#include <fcntl.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <string_view>

#include "platform/linux/bus/FileDescriptor.h"

namespace kx {

namespace {

// The C library's header lacks these.
constexpr unsigned short rawIP = 519;   // ARPHRD_RAWIP
constexpr unsigned short ip6GRE = 823;  // ARPHRD_IP6GRE

/// What sysfs has to say about an interface: lines of the form "NAME=value". Empty where it is not mounted.
std::string uevent(const std::string &name) {
  const FileDescriptor file(open(("/sys/class/net/" + name + "/uevent").c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, 4096> text;
  const ssize_t size = file.isOpen() ? read(file.number(), text.data(), text.size()) : 0;
  return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

bool hasLine(std::string_view text, std::string_view wanted) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (text.substr(0, end) == wanted) return true;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return false;
}

bool beginsWith(const std::string &text, std::string_view prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

bool isModem(const std::string &name, int index, unsigned short type) {
  if (type == rawIP) return true;
  // Kernels of devices that came with Android know no such device type; the drivers' names are all there is.
  if (beginsWith(name, "rmnet") || beginsWith(name, "ccmni")) return true;
  // In a network namespace sysfs may be that of another one, where the name is another interface's.
  const std::string properties = uevent(name);
  return hasLine(properties, "DEVTYPE=wwan") && hasLine(properties, "IFINDEX=" + std::to_string(index));
}

bool isTunnelType(unsigned short type) {
  switch (type) {
    case ARPHRD_NONE:  // tun, WireGuard
    case ARPHRD_TUNNEL:
    case ARPHRD_TUNNEL6:
    case ARPHRD_SIT:
    case ARPHRD_IPGRE:
    case ip6GRE:
      return true;
    default:
      return false;
  }
}

}  // namespace

std::optional<NetworkInterface> NetworkInterface::withIndex(int index) {
  // These requests, unlike those of rtnetlink for interfaces, do not wait for whoever is configuring one.
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket.isOpen()) return std::nullopt;
  const auto answers = [&socket](unsigned long request, ifreq &argument) {
    return ioctl(socket.number(), request, &argument) == 0;
  };
  NetworkInterface interface;
  ifreq named{};
  named.ifr_ifindex = index;
  if (!answers(SIOCGIFNAME, named)) return errno == ENODEV ? std::optional(interface) : std::nullopt;
  named.ifr_name[IFNAMSIZ - 1] = '\0';
  ifreq flags = named;
  ifreq address = named;
  if (!answers(SIOCGIFFLAGS, flags) || !answers(SIOCGIFHWADDR, address)) {
    return errno == ENODEV ? std::optional(interface) : std::nullopt;
  }
  constexpr short working = IFF_UP | IFF_RUNNING;
  interface.isRunning = (flags.ifr_flags & working) == working;

  const unsigned short type = address.ifr_hwaddr.sa_family;
  // A point-to-point link is a modem's, or a tunnel, and itself does not know.
  const bool isPointToPoint = type == ARPHRD_PPP;
  const bool isCertainlyModem = isModem(named.ifr_name, index, type);
  interface.isCellular = isCertainlyModem || isPointToPoint;
  // Some modems' interfaces are of no hardware type, like tunnels.
  interface.isTunnel = !isCertainlyModem && (isPointToPoint || isTunnelType(type));
  return interface;
}

}  // namespace kx
