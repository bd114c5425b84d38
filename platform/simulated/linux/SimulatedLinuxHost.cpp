#include <utility>

#include "KXPublisher/platform/linux/LinuxHost.h"
#include "KXPublisher/platform/simulated/SimulatedPlatform.h"

// What a Linux host says of itself, where the device is the simulated one: a host is tested through its own
// door. The file of certificate authorities is left aside, as the simulated service has no certificate.

namespace kx {

namespace {

void give(SimulatedPlatform &device, const LinuxHostOptions &options) {
  device.advertisingService->identifier = options.advertisingIdentifier;
  device.advertisingService->trackingEnabled = options.advertisingTrackingEnabled;
  device.application->refreshStatus = options.backgroundRefreshStatus;
  device.locationService.ownGeocoder = options.geocoder;
  if (options.applicationIdentifier) device.bundle->identifier = options.applicationIdentifier;
}

/// Announces it on the main thread, soon; from any thread, and nothing when it is so already.
void tell(bool background) noexcept {
  SimulatedPlatform *const device = SimulatedPlatform::made();
  if (device == nullptr || device->application->hostIsInBackground == background) return;
  try {
    device->application->hostIsInBackground = background;
    device->scheduler.mainQueue().async([application = device->application, background] {
      if (background) {
        application->enterBackground();
      } else {
        application->enterForeground();
      }
    });
  } catch (...) {
    // As on a real device: nothing is thrown to the host.
  }
}

}  // namespace

bool LinuxHost::setOptions(LinuxHostOptions options) noexcept {
  try {
    SimulatedPlatform *const device = SimulatedPlatform::made();
    if (device == nullptr) {
      SimulatedPlatform::whenNextIsMade(
          [options = std::move(options)](SimulatedPlatform &next) { give(next, options); });
    } else if (device->wasUsed()) {
      device->optionsCameTooLate = true;
      return false;
    } else {
      give(*device, options);
    }
    return true;
  } catch (...) {
    return false;
  }
}

void LinuxHost::didEnterBackground() noexcept {
  tell(/*background=*/true);
}

void LinuxHost::willEnterForeground() noexcept {
  tell(/*background=*/false);
}

}  // namespace kx
