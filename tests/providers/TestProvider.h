#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "KXPublisher/providers/KXData.h"

namespace kx {

/// A provider that supplies the whole contract; what it answers is the test's to set.
class TestProvider : public KXData {
 public:
  static std::shared_ptr<TestProvider> make() { return KXData::make<TestProvider>(); }
  /// One that wants monitoring.
  static std::shared_ptr<TestProvider> makeMonitored() {
    nextNeedsMonitoring() = true;
    auto provider = make();
    nextNeedsMonitoring() = false;
    return provider;
  }

  bool needsMonitoring() const override { return needsMonitoring_; }
  double monitoringTimeInterval() const override { return period; }
  bool hasPermissions() override {
    ++permissionsAsked;
    return permitted;
  }
  std::shared_ptr<MutableDictionary> computeData() override {
    ++computed;
    if (whileComputing) std::exchange(whileComputing, nullptr)();
    return std::make_shared<MutableDictionary>(Dictionary{{"computed", computed}});
  }
  void instanceDidStartInit() override { ++startedInit; }

  /// The current facts; empty when there are none.
  Dictionary facts() const {
    const auto current = data();
    return current == nullptr ? Dictionary() : *current->contents();
  }

  bool permitted = true;
  double period = 60;
  int permissionsAsked = 0;
  int computed = 0;
  int startedInit = 0;
  std::function<void()> whileComputing;

 private:
  static bool &nextNeedsMonitoring() {
    static bool needs = false;
    return needs;
  }

  const bool needsMonitoring_ = nextNeedsMonitoring();
};

}  // namespace kx
