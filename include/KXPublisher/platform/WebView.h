#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// A page without a window in the system's web engine (UIWebView). To be made, used and destroyed on the main
/// thread.
class KX_EXPORT WebView {
 public:
  virtual ~WebView() = default;

  /// `stringByEvaluatingJavaScriptFromString:`: the script's result as text; absent when it cannot be run.
  virtual std::optional<std::string> stringByEvaluatingJavaScriptFromString(const std::string &script) = 0;
};

/// How web views are made. Main thread only.
class KX_EXPORT WebViewService {
 public:
  virtual ~WebViewService() = default;

  /// A new web view, default construction; a null pointer when the device has no web engine, or none that
  /// this process may start.
  virtual std::unique_ptr<WebView> makeWebView() = 0;
};

}  // namespace kx
