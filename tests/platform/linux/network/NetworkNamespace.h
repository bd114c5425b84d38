#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

namespace kx {

/// A network of the test's own, in which there is nothing but a loopback interface, with a sysfs that shows
/// it. The calling thread is in it from then on, and so are the threads and programs that it starts.
class NetworkNamespace {
 public:
  /// Why this machine does not let a test have one; absent when it does, and the thread is in it.
  static std::optional<std::string> enter();

  /// Runs commands of `ip`, one a line; they have taken effect at the return. Throws when one fails.
  static void ip(const std::string &commands);
  /// The same of `ip -6`, for commands that do not show that they are about IPv6.
  static void ip6(const std::string &commands);

  /// Adds an interface with a cable to another one, `name` followed by "-far", both up.
  static void addLink(const std::string &name);

  /// Changes how many bytes an interface carries at once, which is news, but changes no route.
  static void setMTU(const std::string &name, int mtu);

  /// How much news about the network the kernel could not deliver to the sockets that are open.
  static int droppedNews();
  /// How many sockets listen to the network's news.
  static int listeners();

 private:
  static void run(const std::vector<std::string> &commandLine, const std::string &commands);
};

/// A tunnel's interface, which is there and has a carrier as long as this object exists.
class TunnelInterface {
 public:
  /// `type`: the kernel's number for the type of device, if it is not to be that of tunnels.
  explicit TunnelInterface(const std::string &name, std::optional<int> type = std::nullopt);
  ~TunnelInterface();
  TunnelInterface(const TunnelInterface &) = delete;
  TunnelInterface &operator=(const TunnelInterface &) = delete;

 private:
  const int device_;
};

/// Has sysfs tell something else about an interface.
class StandInUevent {
 public:
  StandInUevent(const std::string &interface, const std::string &text);
  ~StandInUevent();
  StandInUevent(const StandInUevent &) = delete;
  StandInUevent &operator=(const StandInUevent &) = delete;

 private:
  const TemporaryDirectory directory_;
  const std::string path_;
};

}  // namespace kx
