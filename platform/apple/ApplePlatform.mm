#include "platform/apple/ApplePlatform.h"

namespace kx {

ApplePlatform::ApplePlatform()
    : sharedApplication_(std::make_shared<AppleApplication>()),
      mainOperationQueue_(std::make_shared<AppleMainOperationQueue>()),
      notificationCenter_(sharedApplication_, mainOperationQueue_) {}

ApplePlatform::~ApplePlatform() = default;

std::unique_ptr<Platform> makeLinkedPlatform() {
  return std::make_unique<ApplePlatform>();
}

}  // namespace kx
