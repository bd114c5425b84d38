#pragma once

#include <optional>
#include <string>

#include "KXPublisher/platform/Clock.h"
#include "KXPublisher/platform/ProcessInfo.h"
#include "KXPublisher/platform/SystemName.h"

// What the kernel answers in one call.

namespace kx {

class LinuxClock : public Clock {
 public:
  double timeIntervalSince1970() override;
};

class LinuxSystemName : public SystemName {
 public:
  std::optional<std::string> machine() override;
};

class LinuxProcessInfo : public ProcessInfo {
 public:
  /// A random UUID (version 4).
  std::string globallyUniqueString() override;
};

}  // namespace kx
