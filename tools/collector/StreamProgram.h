#pragma once

#include "tools/collector/Options.h"

namespace kx::collector {

/// kx-collector --stream: takes messages for a stream, beside others that do the same, until a signal ends
/// it. It keeps nothing and has no page. Throws what main() reports.
void collectForStream(const Options &options, const NATSStreamSettings &streamSettings);

}  // namespace kx::collector
