#include <glib.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

#include "KXPublisher/KXPublisher.hpp"
#include "KXPublisher/platform/Geocoder.h"
#include "KXPublisher/platform/LocationService.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/linux/LinuxHost.h"
#include "KXPublisher/transport/KXNetworking.h"

// A host application that ends at any moment of the library's life, while it logs in, sends messages and
// looks up places:
//
//     https-exiting-library <host name> <certificate authority file> <when> <how>
//
// When: so many microseconds after the first call, or "token+<number>": after the login. How: "return" from
// main, "exit", "exit-elsewhere" (on another thread), "_exit", "signal", or "without-loop": return from main
// without ever having run the main loop.
//
// The exit status is 7; 8 when the exit has taken more than its time.

namespace {

using Clock = std::chrono::steady_clock;

constexpr int status = 7;

Clock::time_point end = Clock::time_point::max();

void lookUpAPlace() {
  kx::Location location;
  location.coordinate = {52.5, 13.4};
  location.horizontalAccuracy = 10;
  static const auto geocoder = kx::Platform::current().location().makeGeocoder();
  geocoder->reverseGeocodeLocation(location, [](const auto &...) {});
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 5) return 2;
  std::atexit([] {
    if (Clock::now() - end > std::chrono::milliseconds(1900)) _exit(8);
    // Time enough for a thread that has not been stopped to fall over what is missing.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  });
  const std::string how = argv[4];
  kx::LinuxHostOptions options;
  options.advertisingIdentifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  options.certificateAuthorityFile = argv[2];
  if (!kx::LinuxHost::setOptions(options)) return 1;

  const std::string when = argv[3];
  const bool isAfterLogin = when.compare(0, 6, "token+") == 0;
  const std::chrono::microseconds delay(std::stol(isAfterLogin ? when.substr(6) : when));
  if (!isAfterLogin) end = Clock::now() + delay;
  const auto publisher = kx::KXPublisher::sharedInstanceWithApiToken("the API token", argv[1]);
  const auto networking = kx::KXNetworking::sharedInstanceWithApiToken(std::nullopt, std::nullopt);
  while (Clock::now() < end) {
    if (how != "without-loop") g_main_context_iteration(nullptr, FALSE);
    lookUpAPlace();
    if (networking->accessToken()) {
      if (end == Clock::time_point::max()) end = Clock::now() + delay;
      publisher->logData(nullptr);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  end = Clock::now();  // a busy machine may be late
  if (how == "exit") std::exit(status);
  if (how == "_exit") _exit(status);
  if (how == "signal") std::raise(SIGTERM);
  if (how == "exit-elsewhere") {
    std::thread([] { std::exit(status); }).detach();
    while (true) pause();
  }
  return status;
}
