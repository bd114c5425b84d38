// In the place of NATSStream.cpp where the NATS library is not.

#include "tools/collector/NATSStream.h"

namespace kx::collector {

class NATSStream::State {};

// NOLINTNEXTLINE(performance-unnecessary-value-param): the one in whose place it stands keeps it
NATSStream::NATSStream(const NATSStreamSettings & /*settings*/, StateChanged /*stateChanged*/) {
  throw std::runtime_error("--stream cannot be used: this kx-collector was built without libnats");
}

NATSStream::~NATSStream() = default;

void NATSStream::publish(const StreamMessage & /*message*/, Acknowledged /*acknowledged*/) {}

StreamStatistics NATSStream::statistics() const {
  return {};
}

}  // namespace kx::collector
