#pragma once

#include "KXPublisher/platform/Bundle.h"

namespace kx {

/// NSBundle. Of an information list's values only texts are given, which is what the library asks for.
class AppleBundleService : public BundleService {
 public:
  std::shared_ptr<Bundle> mainBundle() override;
  std::shared_ptr<Bundle> bundleWithIdentifier(const std::optional<std::string> &identifier) override;
};

}  // namespace kx
