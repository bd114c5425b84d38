#include <cstdint>

#include "KXPublisher/KXPublisher.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "platform/ProcessInfo.h"
#include "providers/KXData.h"
#include "transport/KXNetworking.h"

namespace kx {

using namespace constants;

Dictionary KXPublisher::data() const {
  Dictionary message;
  for (const auto &provider : dataProviders()) {
    if (const auto facts = provider->data()) message.addEntriesFrom(*facts->contents());
  }
  // After the merge, so that these five keys are the publisher's, whatever a provider says.
  message.set(dataKeyPublisherSdkName, kxPublisherSdkName);
  message.set(dataKeyPublisherSdkVersion, kxPublisherSdkVersion);
  const auto addresses = KXNetworking::getIPAddresses();
  message.set(dataKeyIpAddresses, Array(addresses.begin(), addresses.end()));
  Platform &platform = Platform::current();
  message.set(dataKeyEventId, platform.processInfo().globallyUniqueString());
  // Milliseconds, but of whole seconds: the fraction is dropped first, as the service expects.
  const auto seconds = static_cast<std::int64_t>(platform.clock().timeIntervalSince1970());
  message.set(dataKeyEventTime, seconds * 1000);
  return message;
}

std::string KXPublisher::description() const {
  return data().description();
}

}  // namespace kx
