#pragma once

#include <memory>

#include "KXPublisher/platform/WebView.h"

namespace kx {

/// WebKitGTK, when the host has loaded it and has a display; otherwise there are no web views. Loading it for
/// the library's sake would cost 120 MB, and starting it without a display would end the process.
///
/// A view is not a page: it runs the one script "navigator.userAgent", by asking the engine's settings.
class LinuxWebViewService : public WebViewService {
 public:
  std::unique_ptr<WebView> makeWebView() override;
};

}  // namespace kx
