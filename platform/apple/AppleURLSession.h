#pragma once

#include "KXPublisher/platform/URLSession.h"

namespace kx {

/// NSURLSession. That sessions speak TLS 1.2 or later, and follow redirects to https only, is what App
/// Transport Security sees to: a host whose information list makes exceptions from it, or switches it off,
/// has the exceptions here, too.
class KX_EXPORT AppleURLSessionService : public URLSessionService {
 public:
  std::optional<URL> URLWithString(const std::string &text) override;
  std::shared_ptr<URLSession> sessionWithDefaultConfiguration() override;
};

}  // namespace kx
