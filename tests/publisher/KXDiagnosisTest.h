#pragma once

#include <gmock/gmock.h>

#include <KXPublisher/KXPublisher.hpp>
#include <memory>

#include "tests/providers/TestProvider.h"
#include "tests/support/SimulatedTest.h"

namespace kx {

/// A test of what the publisher tells of itself when it is asked why nothing arrives.
class KXDiagnosisTest : public SimulatedTest {
 protected:
  using Service = SimulatedCollectionService;

  static constexpr double start = 1700000000;  ///< when the device is switched on, in seconds since 1970

  Service &service = device.service;
  SimulatedApplication &application = *device.application;

  std::shared_ptr<KXPublisher> publisher;

  void startWith(const char *apiToken, const char *hostname) {
    publisher = KXPublisher::sharedInstanceWithApiToken(apiToken, hostname);
  }
  void startUp() { startWith("secret-token", "collect.example.com"); }
  /// From now on the message has these facts, too, whatever the other providers say.
  void addFacts(const Dictionary &facts) const {
    const auto provider = TestProvider::make();
    device.advance(1);  // its first refresh is over
    provider->updateData(std::make_shared<MutableDictionary>(facts));
    auto providers = publisher->dataProviders();
    providers.push_back(provider);
    publisher->setDataProviders(providers);
  }
  static KXDiagnosis diagnosis() { return KXPublisher::diagnosis(); }
  /// When something happened, as seconds after the device was switched on; -1: never.
  static double secondOf(const KXDiagnosis::When &when) { return when ? when->at - start : -1; }
};

}  // namespace kx
