#pragma once

#include "KXPublisher/platform/Clock.h"
#include "KXPublisher/platform/InterfaceList.h"
#include "KXPublisher/platform/SystemName.h"

// What the system itself answers, without a framework of its own.

namespace kx {

/// NSDate.
class AppleClock : public Clock {
 public:
  double timeIntervalSince1970() override;
};

/// `uname`.
class AppleSystemName : public SystemName {
 public:
  std::optional<std::string> machine() override;
};

/// `getifaddrs`.
class AppleInterfaceList : public InterfaceList {
 public:
  std::vector<InterfaceAddress> getifaddrs() override;
};

}  // namespace kx
