#pragma once

#include <netinet/in.h>

#include <optional>

#include "platform/linux/network/NetworkInterface.h"

namespace kx {

// Where the kernel would send traffic now, by all its routing tables and rules: the interface, or one that is
// not running when it would send it nowhere; absent when the kernel refuses to tell. Asking sends nothing and
// waits for nothing. From any thread, whose network namespace counts.

/// To `address`, which may be this device's own.
std::optional<NetworkInterface> interfaceOfRouteTo(in_addr address);

/// To anywhere, by IPv4 or IPv6. Of several interfaces that run, one that is no tunnel: when only one
/// protocol goes through a tunnel, the other one shows what is beneath.
std::optional<NetworkInterface> interfaceOfAnyRoute();

}  // namespace kx
