#include "KXPublisher/platform/simulated/SimulatedPlatform.h"

#include <stdexcept>
#include <utility>

namespace kx {

SimulatedPlatform::SimulatedPlatform(std::uint64_t seed)
    : scheduler(seed),
      mainOperations(std::make_shared<MainOperationQueue>(scheduler)),
      notificationCenter(scheduler, mainOperations),
      application(std::make_shared<SimulatedApplication>(notificationCenter, scheduler)),
      reachability(scheduler, runLoopService),
      device(std::make_shared<SimulatedDevice>()),
      advertisingService(std::make_shared<SimulatedAdvertising>()),
      bundle(std::make_shared<SimulatedBundle>()),
      sharedApplication_(application) {}

SimulatedPlatform::~SimulatedPlatform() = default;

SimulatedPlatform &SimulatedPlatform::install(std::uint64_t seed) {
  auto platform = std::make_unique<SimulatedPlatform>(seed);
  SimulatedPlatform &installed = *platform;
  if (!Platform::install(std::move(platform))) throw std::logic_error("the process has a platform already");
  return installed;
}

}  // namespace kx
