#include "KXPublisher/platform/Platform.h"

#include <atomic>

namespace kx {

namespace {

// Never destroyed: worker threads may still use the platform while the process exits.
std::atomic<Platform *> installed{nullptr};

}  // namespace

bool Platform::install(std::unique_ptr<Platform> platform) {
  Platform *none = nullptr;
  const bool first = installed.compare_exchange_strong(none, platform.get());
  if (first) static_cast<void>(platform.release());  // owned by the process from now on
  return first;
}

Platform *Platform::currentIfMade() {
  return installed.load();
}

Platform &Platform::current() {
  Platform *platform = installed.load();
  if (platform == nullptr) {
    // The guard lets one thread make the linked platform while others wait for it.
    static const bool linked = install(makeLinkedPlatform());
    static_cast<void>(linked);
    platform = installed.load();
  }
  return *platform;
}

}  // namespace kx
