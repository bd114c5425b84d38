#pragma once

#include "KXPublisher/platform/WebView.h"

namespace kx {

/// UIWebView, looked up by its name at run time, so that nothing retired is linked: on a system that no
/// longer has it there are no web views.
///
/// `KX_NO_RETIRED_WEB_VIEW`, defined when the library is built, leaves out the look-up as well, and with it
/// every trace of that class: for hosts that go to a store which refuses them. There are no web views then.
///
/// The class's successor, WKWebView, answers a script only later, on the main thread, while the caller of
/// this service holds up that thread until it has an answer. To wait there would either stop the host, or run
/// its events in the middle of a task of the library.
class KX_EXPORT AppleWebViewService : public WebViewService {
 public:
  std::unique_ptr<WebView> makeWebView() override;
};

}  // namespace kx
