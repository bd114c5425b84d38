#pragma once

#import <Foundation/Foundation.h>

#include <optional>

#include "KXPublisher/platform/URLSession.h"

namespace kx {

/// NSURLSession. That sessions speak TLS 1.2 or later, and follow redirects to https only, is what App
/// Transport Security sees to: a host whose information list makes exceptions from it, or switches it off,
/// has the exceptions here, too.
class AppleURLSessionService : public URLSessionService {
 public:
  std::optional<URL> URLWithString(const std::string &text) override;
  std::shared_ptr<URLSession> sessionWithDefaultConfiguration() override;
};

using UploadCompletionHandler = void (^)(NSData *_Nullable body, NSURLResponse *_Nullable response,
                                         NSError *_Nullable error);

/// A task of `session`, not yet started, for a request of the library's; nil when the system refuses it.
NSURLSessionUploadTask *_Nullable systemUploadTask(NSURLSession *_Nonnull session, const URLRequest &request,
                                                   const std::optional<Data> &body,
                                                   UploadCompletionHandler _Nonnull completionHandler);

}  // namespace kx
