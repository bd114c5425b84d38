#pragma once

#include <string>
#include <vector>

#include "tools/collector/EventLog.h"

namespace kx::collector {

/// What the developer of a host does next: the lines that send its messages to this collector.
std::vector<std::string> nextSteps(const ListeningAddress &where);

}  // namespace kx::collector
