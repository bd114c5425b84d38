// Links the library, runs it without a service, and asks where Berlin is.
#include <KXPublisher/platform/Application.h>
#include <KXPublisher/platform/LocationService.h>
#include <KXPublisher/platform/Platform.h>
#include <KXPublisher/platform/linux/LinuxHost.h>
#include <gio/gio.h>

#include <KXPublisher/KXPublisher.hpp>
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "platform/Application.h"

int main() {
  GApplication *const application =
      g_application_new(host::applicationIdentifier(), G_APPLICATION_DEFAULT_FLAGS);
  g_application_set_default(application);
  if (!kx::LinuxHost::setOptions({})) return 1;
  const auto publisher = kx::KXPublisher::sharedInstanceWithApiToken(nullptr, nullptr);
  if (publisher->data().size() == 0) return 1;

  std::promise<std::string> country;
  std::future<std::string> found = country.get_future();
  kx::Location berlin{};
  berlin.coordinate = {52.52, 13.405};
  const auto geocoder = kx::Platform::current().location().makeGeocoder();
  geocoder->reverseGeocodeLocation(berlin, [&country](const std::vector<kx::Placemark> &placemarks) {
    country.set_value(placemarks.empty() ? "" : placemarks.front().ISOcountryCode.value_or(""));
  });
  if (found.wait_for(std::chrono::seconds(20)) != std::future_status::ready) return 1;
  std::printf("%s\n", found.get().c_str());
  return 0;
}
