#include "tests/platform/linux/network/NetworkNamespace.h"

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <system_error>

#include "platform/linux/bus/FileDescriptor.h"

namespace kx {

namespace {

constexpr const char *program = "/sbin/ip";
constexpr const char *tunnelDevice = "/dev/net/tun";

void require(bool success, const std::string &what) {
  if (!success) throw std::system_error(errno, std::generic_category(), what);
}

void write(const std::string &path, const std::string &text) {
  std::ofstream(path) << text;
}

/// Whoever is not root becomes it, in a user namespace.
bool unshareAll() {
  if (unshare(CLONE_NEWNET | CLONE_NEWNS) == 0) return true;
  const std::string user = std::to_string(getuid());
  const std::string group = std::to_string(getgid());
  if (errno != EPERM || unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS) != 0) return false;
  write("/proc/self/setgroups", "deny");
  write("/proc/self/uid_map", "0 " + user + " 1");
  write("/proc/self/gid_map", "0 " + group + " 1");
  return true;
}

/// What `visit` makes of the lines of the kernel's list of netlink sockets that are for network news.
void forEachListener(const std::function<void(int dropped)> &visit) {
  std::ifstream list("/proc/thread-self/net/netlink");
  std::string line;
  std::getline(list, line);  // the heading
  std::string socket;
  std::string protocol;
  std::string process;
  std::string groups;
  std::string received;
  std::string sent;
  std::string dump;
  std::string locks;
  int dropped = 0;
  std::string inode;
  while (list >> socket >> protocol >> process >> groups >> received >> sent >> dump >> locks >> dropped >>
         inode) {
    const bool isOfKernel = process == "0";
    if (protocol == "0" && !isOfKernel && std::stoul(groups, nullptr, 16) != 0) visit(dropped);
  }
}

}  // namespace

std::optional<std::string> NetworkNamespace::enter() {
  for (const char *const needed : {program, tunnelDevice}) {
    if (access(needed, R_OK) != 0) return std::string(needed) + ": " + std::strerror(errno);
  }
  if (!unshareAll()) return std::string("no namespaces: ") + std::strerror(errno);
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0) {
    return std::string("no sysfs of its own: ") + std::strerror(errno);
  }
  return std::nullopt;
}

void NetworkNamespace::ip(const std::string &commands) {
  run({program, "-batch", "-"}, commands);
}

void NetworkNamespace::ip6(const std::string &commands) {
  run({program, "-6", "-batch", "-"}, commands);
}

void NetworkNamespace::run(const std::vector<std::string> &commandLine, const std::string &commands) {
  ChildProcess child(commandLine);
  child.write(commands + "\n");
  child.closeInput();
  if (child.exitCode() != 0) throw std::runtime_error("ip: " + child.errors());
}

void NetworkNamespace::addLink(const std::string &name) {
  ip("link add " + name + " type veth peer name " + name + "-far");
  // Without addresses, which IPv6 would give them on its own, and tell so seconds later.
  for (const std::string &end : {name + "-far", name}) {
    ip("link set " + end + " addrgenmode none\nlink set " + end + " up");
  }
}

void NetworkNamespace::setMTU(const std::string &name, int mtu) {
  const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  name.copy(request.ifr_name, IFNAMSIZ - 1);
  request.ifr_mtu = mtu;
  require(ioctl(socket.number(), SIOCSIFMTU, &request) == 0, "SIOCSIFMTU");
}

int NetworkNamespace::droppedNews() {
  int sum = 0;
  forEachListener([&sum](int dropped) { sum += dropped; });
  return sum;
}

int NetworkNamespace::listeners() {
  int count = 0;
  forEachListener([&count](int) { ++count; });
  return count;
}

TunnelInterface::TunnelInterface(const std::string &name, std::optional<int> type)
    : device_(open(tunnelDevice, O_RDWR | O_CLOEXEC)) {
  require(device_ >= 0, tunnelDevice);
  ifreq request{};
  name.copy(request.ifr_name, IFNAMSIZ - 1);
  request.ifr_flags = IFF_TUN;
  require(ioctl(device_, TUNSETIFF, &request) == 0, "TUNSETIFF");
  if (type) require(ioctl(device_, TUNSETLINK, *type) == 0, "TUNSETLINK");
  NetworkNamespace::ip("link set " + name + " up");
}

TunnelInterface::~TunnelInterface() {
  close(device_);
}

StandInUevent::StandInUevent(const std::string &interface, const std::string &text)
    : path_("/sys/class/net/" + interface + "/uevent") {
  const std::string file = directory_.path() + "/uevent";
  write(file, text);
  require(mount(file.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr) == 0, path_);
}

StandInUevent::~StandInUevent() {
  umount(path_.c_str());
}

}  // namespace kx
