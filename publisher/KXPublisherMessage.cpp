#include <cstddef>
#include <cstdint>
#include <iterator>

#include "KXPublisher/KXPublisher.hpp"
#include "KXPublisher/platform/Clock.h"
#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/ProcessInfo.h"
#include "KXPublisher/providers/KXData.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "platform/EndedException.h"

namespace kx {

using namespace constants;

namespace {

constexpr std::size_t mostKeys = 32;

/// Milliseconds, but of whole seconds: the fraction is dropped first, as the service expects. A clock reading
/// of which no integer can be made counts as 0.
std::int64_t eventTime(double timeIntervalSince1970) {
  constexpr double bound = 9e15;
  const bool sane = timeIntervalSince1970 > -bound && timeIntervalSince1970 < bound;
  return sane ? static_cast<std::int64_t>(timeIntervalSince1970) * 1000 : 0;
}

}  // namespace

Dictionary KXPublisher::data() const noexcept {
  try {
    return message();
  } catch (...) {
    reportEndedException();
    return {};
  }
}

Dictionary KXPublisher::message() const {
  Dictionary message;
  message.reserve(mostKeys);
  for (const auto &provider : dataProviders_.get()) {
    if (const auto facts = provider->data()) message.addEntriesFrom(*facts->contents());
  }
  // After the merge, so that these five keys are the publisher's, whatever a provider says.
  message.set(dataKeyPublisherSdkName, kxPublisherSdkName);
  message.set(dataKeyPublisherSdkVersion, kxPublisherSdkVersion);
  auto addresses = KXNetworking::getIPAddresses();
  message.set(dataKeyIpAddresses,
              Array(std::make_move_iterator(addresses.begin()), std::make_move_iterator(addresses.end())));
  Platform &platform = Platform::current();
  message.set(dataKeyEventId, platform.processInfo().globallyUniqueString());
  message.set(dataKeyEventTime, eventTime(platform.clock().timeIntervalSince1970()));
  return message;
}

std::string KXPublisher::description() const noexcept {
  try {
    return message().description();
  } catch (...) {
    reportEndedException();
    return {};
  }
}

}  // namespace kx
