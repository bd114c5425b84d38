#pragma once

#include "KXPublisher/platform/Locale.h"

namespace kx {

/// NSLocale.
class AppleLocale : public Locale {
 public:
  std::vector<std::string> preferredLanguages() override;
};

}  // namespace kx
