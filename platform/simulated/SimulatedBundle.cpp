#include "KXPublisher/platform/simulated/SimulatedDevice.h"

namespace kx {

std::optional<Value> SimulatedBundle::objectForInfoDictionaryKey(const std::string &key) {
  const auto found = information.find(key);
  return found == information.end() ? std::nullopt : std::optional<Value>(found->second);
}

}  // namespace kx
