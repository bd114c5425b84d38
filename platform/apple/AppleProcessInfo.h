#pragma once

#include "KXPublisher/platform/ProcessInfo.h"

namespace kx {

/// NSProcessInfo.
class AppleProcessInfo : public ProcessInfo {
 public:
  std::string globallyUniqueString() override;
};

}  // namespace kx
