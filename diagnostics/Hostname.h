#pragma once

#include <string_view>

namespace kx {

/// Whether `text` can name a service: a host name in ASCII, an IPv4 address or an IPv6 address in brackets,
/// and maybe a colon and a port. Neither a scheme nor a path nor a blank can be a part of it.
bool isHostnameWithOrWithoutPort(std::string_view text);

}  // namespace kx
