#include <stdexcept>

#include "KXPublisher/platform/simulated/SimulatedDevice.h"

namespace kx {

class SimulatedWebViewService::View : public WebView {
 public:
  explicit View(SimulatedWebViewService &service) : service_(service) { ++service_.alive; }
  ~View() override { --service_.alive; }

  std::optional<std::string> stringByEvaluatingJavaScriptFromString(const std::string &script) override {
    service_.requireMainThread();
    return script == "navigator.userAgent" ? service_.userAgent : std::nullopt;
  }

 private:
  SimulatedWebViewService &service_;
};

std::unique_ptr<WebView> SimulatedWebViewService::makeWebView() {
  requireMainThread();
  if (!present) return nullptr;
  ++made;
  return std::make_unique<View>(*this);
}

void SimulatedWebViewService::requireMainThread() const {
  if (!dispatch_.isMainThread()) throw std::logic_error("a web view is used off the main thread");
}

}  // namespace kx
