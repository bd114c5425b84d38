#pragma once

#include <optional>

namespace kx {

/// What the kernel tells about a network interface.
struct NetworkInterface {
  bool isRunning = false;   ///< it is up, and its link can carry traffic
  bool isCellular = false;  ///< it is a cellular modem's
  bool isTunnel = false;    ///< what it carries may well leave the device by another interface

  /// The interface with that index, one that is not running when there is none. Absent when the kernel
  /// refuses to tell. Reads kernel memory only and waits for nothing; from any thread.
  static std::optional<NetworkInterface> withIndex(int index);
};

}  // namespace kx
