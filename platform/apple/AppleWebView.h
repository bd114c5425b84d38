#pragma once

#include "KXPublisher/platform/WebView.h"

namespace kx {

/// There are no web views: the store refuses UIWebView, so no trace of it is built.
///
/// `KX_RETIRED_WEB_VIEW`, defined when the library is built, brings it back for hosts that go elsewhere. It
/// is looked up by its name at run time: on a system that no longer has it there are no web views, either.
///
/// The class's successor, WKWebView, answers a script only later, on the main thread, while the caller of
/// this service holds up that thread until it has an answer. To wait there would either stop the host, or run
/// its events in the middle of a task of the library. To ask ahead of time does not help: the device's facts
/// are read once, milliseconds after the host's call, and the engine's processes take longer to start.
class AppleWebViewService : public WebViewService {
 public:
  std::unique_ptr<WebView> makeWebView() override;
};

}  // namespace kx
