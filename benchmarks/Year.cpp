// A year of a phone on the simulated device: somebody uses it every day and puts it away every night. Prints
// its processor time; with "keep", every request of the year is kept, as a test would that looks at them in
// the end.

#include <KXPublisher/platform/simulated/SimulatedScope.h>

#include <KXPublisher/KXPublisher.hpp>
#include <cstdlib>
#include <ctime>
#include <string>

#include "benchmarks/Commands.h"

namespace {

constexpr double minute = 60;
constexpr double hour = 60 * minute;

void live(kx::SimulatedPlatform &device, bool keeps) {
  device.locationService.position = kx::Location{{52.52, 13.40}, 5, 34, 5};
  device.locationService.placemarks = {kx::Placemark{}};
  kx::KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
  std::size_t messages = 0;
  for (int day = 0; day < 365; ++day) {
    for (int hourOfDay = 7; hourOfDay < 23; ++hourOfDay) {
      device.resume();
      device.application->enterForeground();
      device.locationService.moveTo(kx::Location{{52.0 + hourOfDay * 0.01, 13.40}, 5, 34, 5});
      device.advance(20 * minute);
      device.application->enterBackground();
      device.advance(minute);
      device.suspend();
      device.advance(39 * minute);
    }
    device.advance(8 * hour);
    if (keeps) continue;
    messages += device.service.messages().size();
    device.service.requests.clear();
  }
  if (keeps) messages = device.service.messages().size();
  // Each hour of use one after the return, one after ten minutes and one on leaving, at the least.
  if (messages < std::size_t{365} * 16 * 3) std::abort();
  tell("messages", static_cast<double>(messages));
}

}  // namespace

int main(int argc, char **argv) {
  const bool keeps = argc > 1 && std::string(argv[1]) == "keep";
  kx::SimulatedScope scope;
  tell("seconds", microseconds(CLOCK_PROCESS_CPUTIME_ID, [&] { live(scope.device, keeps); }) / 1e6);
}
