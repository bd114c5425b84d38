#pragma once

#include "platform/URLSession.h"

namespace kx {

/// NSURLSession. How sessions deal with TLS and redirects is the system's: App Transport Security, unless the
/// host's information list makes exceptions from it.
class KX_EXPORT AppleURLSessionService : public URLSessionService {
 public:
  std::optional<URL> URLWithString(const std::string &text) override;
  std::shared_ptr<URLSession> sessionWithDefaultConfiguration() override;
};

}  // namespace kx
