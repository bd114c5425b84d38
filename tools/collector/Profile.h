#pragma once

#include <string>

namespace kx::collector {

/// A configuration profile that lets iOS trust that authority: a property list around its certificate.
std::string profileOf(const std::string &authorityPem);

}  // namespace kx::collector
