#include "KXPublisher/platform/simulated/SimulatedPlatform.h"

namespace kx {

std::unique_ptr<Platform> makeLinkedPlatform() {
  return std::make_unique<SimulatedPlatform>();
}

}  // namespace kx
