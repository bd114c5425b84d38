#pragma once

#include <string>
#include <vector>

namespace kx::fleet {

/// `kx-fleet load`: its exit code.
int runLoad(const std::vector<std::string> &arguments);

}  // namespace kx::fleet
