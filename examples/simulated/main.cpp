// How a host developer tests with the library: on a whole device in memory, where a day takes a moment.
#include <KXPublisher/platform/simulated/SimulatedScope.h>

#include <KXPublisher/KXPublisher.hpp>
#include <cstdio>

namespace {

bool allHold = true;

/// Stands where a test framework would report a failure.
void expect(bool holds, const char *what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  allHold = false;
}

}  // namespace

int main() {
  kx::SimulatedScope scope;
  kx::SimulatedPlatform &device = scope.device;
  device.localeService.languages = {"fr-CA"};
  device.service.script(kx::SimulatedCollectionService::loginPath, {kx::SimulatedReply::status(503)});

  kx::KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
  device.advance(86400);  // seconds
  expect(device.service.logins().size() == 2, "a refused login is tried again");
  const std::size_t sent = device.service.messages().size();
  expect(sent == 144, "one message every ten minutes, as soon as there is a token");

  device.application->enterBackground();
  device.advance(1);
  expect(device.service.messages().size() == sent + 1, "one message on entering the background");
  const auto text = device.service.messages().back().text();
  expect(text && text->find("fr-CA") != std::string::npos, "it tells the user's language");

  device.advance(86400);
  expect(device.service.messages().size() == sent + 1, "none in the background");
  return allHold ? 0 : 1;
}
