#pragma once

#include "KXPublisher/platform/Console.h"

namespace kx {

/// NSLog.
class AppleConsole : public Console {
 public:
  void log(const std::string &line) override;
};

}  // namespace kx
