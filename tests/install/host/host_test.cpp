// What a host tests on the simulated device: that it reports.
#include <KXPublisher/platform/simulated/SimulatedPlatform.h>

#include <KXPublisher/KXPublisher.hpp>

int main() {
  kx::SimulatedPlatform &device = kx::SimulatedPlatform::install();
  kx::KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
  device.advance(6);
  return device.service.messages().size() == 1 ? 0 : 1;
}
