#pragma once

#include <vector>

#include "KXPublisher/platform/InterfaceList.h"

namespace kx {

/// The IPv4 entries of the list that the C library's `getifaddrs` has, in its order, with its names. Of the
/// other entries nothing could be told: of an interface's own record, which has no address of a network, and
/// of an IPv6 one, whose flow information is zero. They are what makes that list long, and the kernel tells
/// them apart by itself.
class LinuxInterfaceList : public InterfaceList {
 public:
  /// Waits for nothing. Empty too where the kernel refuses to tell.
  std::vector<InterfaceAddress> getifaddrs() override;
};

}  // namespace kx
