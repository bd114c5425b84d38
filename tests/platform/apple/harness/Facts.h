#pragma once

#include <nlohmann/json.hpp>

#include "KXPublisher/platform/foundation/JSONSerialization.h"
#include "KXPublisher/providers/KXData.h"
#include "tests/platform/apple/harness/StandIn.h"

namespace kx {

/// What a provider knows now; null until it has computed for the first time.
inline nlohmann::json factsOf(const KXData &provider) {
  const auto data = provider.data();
  if (data == nullptr) return {};
  return nlohmann::json::parse(JSONSerialization::dataWithJSONObject(*data->contents()).value_or("not JSON"));
}

/// Runs the main run loop until the provider knows exactly that.
inline bool comesToKnow(const KXData &provider, const nlohmann::json &facts) {
  return standin::runMainLoopUntil([&] { return factsOf(provider) == facts; });
}

}  // namespace kx
