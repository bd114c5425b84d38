#include "platform/apple/AppleWebView.h"

#import <Foundation/Foundation.h>

#include "platform/apple/AppleText.h"

#ifdef KX_RETIRED_WEB_VIEW

/// What is asked of a UIWebView. Its own header is retired, too.
@protocol KXPublisherScriptableWebView <NSObject>
- (nullable NSString *)stringByEvaluatingJavaScriptFromString:(nonnull NSString *)script;
@end

namespace kx {

namespace {

class AppleWebView : public WebView {
 public:
  explicit AppleWebView(id<KXPublisherScriptableWebView> webView) : webView_(webView) {}

  std::optional<std::string> stringByEvaluatingJavaScriptFromString(const std::string &script) override {
    NSString *const source = stringOf(script);
    return source == nil ? std::nullopt : textOf([webView_ stringByEvaluatingJavaScriptFromString:source]);
  }

 private:
  const id<KXPublisherScriptableWebView> webView_;
};

}  // namespace

std::unique_ptr<WebView> AppleWebViewService::makeWebView() {
  id<KXPublisherScriptableWebView> const webView = [[NSClassFromString(@"UIWebView") alloc] init];
  return webView == nil ? nullptr : std::make_unique<AppleWebView>(webView);
}

}  // namespace kx

#else

namespace kx {

std::unique_ptr<WebView> AppleWebViewService::makeWebView() {
  return nullptr;
}

}  // namespace kx

#endif
