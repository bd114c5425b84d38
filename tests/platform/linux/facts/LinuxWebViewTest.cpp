#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cctype>
#include <stdexcept>
#include <string>

#include "platform/linux/facts/LinuxWebView.h"

namespace kx {
namespace {

/// A WebKitGTK library that the host has loaded: a stand-in with its file name.
class LoadedEngine {
 public:
  explicit LoadedEngine(const std::string &name)
      : handle_(dlopen((std::string(STAND_IN_DIRECTORY "/") + name).c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) throw std::runtime_error(dlerror());
  }
  ~LoadedEngine() { dlclose(handle_); }

  void setDisplay(bool present) const { function<void(int)>("standInSetDisplay")(present ? 1 : 0); }
  void setUserAgent(const char *text) const { function<void(const char *)>("standInSetUserAgent")(text); }
  int settingsAlive() const { return function<int()>("standInSettingsAlive")(); }

 private:
  template <class Function>
  Function *function(const char *name) const {
    return reinterpret_cast<Function *>(dlsym(handle_, name));
  }

  void *handle_;
};

class LinuxWebViewTest : public testing::TestWithParam<const char *> {
 protected:
  LoadedEngine engine{GetParam()};
  LinuxWebViewService service;
};

TEST_P(LinuxWebViewTest, AnswersTheEnginesUserAgent) {
  engine.setDisplay(true);
  const auto view = service.makeWebView();
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(view->stringByEvaluatingJavaScriptFromString("navigator.userAgent"),
            "Mozilla/5.0 (X11; Linux x86_64) StandIn/1.0");
  EXPECT_EQ(engine.settingsAlive(), 0);
}

TEST_P(LinuxWebViewTest, RunsNoOtherScript) {
  engine.setDisplay(true);
  const auto view = service.makeWebView();
  ASSERT_NE(view, nullptr);
  for (const char *const script : {"", "navigator", "navigator.userAgent;", "1 + 1"}) {
    EXPECT_EQ(view->stringByEvaluatingJavaScriptFromString(script), std::nullopt) << script;
  }
}

TEST_P(LinuxWebViewTest, StartsNoEngineWithoutADisplay) {
  engine.setDisplay(false);
  EXPECT_EQ(service.makeWebView(), nullptr);
  EXPECT_EQ(engine.settingsAlive(), 0);
}

TEST_P(LinuxWebViewTest, AnAnswerThatIsNoTextIsAbsent) {
  engine.setDisplay(true);
  const auto view = service.makeWebView();
  ASSERT_NE(view, nullptr);
  for (const char *const answer : {static_cast<const char *>(nullptr), "", "caf\xe9"}) {
    engine.setUserAgent(answer);
    EXPECT_EQ(view->stringByEvaluatingJavaScriptFromString("navigator.userAgent"), std::nullopt);
  }
}

INSTANTIATE_TEST_SUITE_P(Engines, LinuxWebViewTest,
                         testing::Values("libwebkit2gtk-4.0.so.37", "libwebkit2gtk-4.1.so.0",
                                         "libwebkitgtk-6.0.so.4"),
                         [](const auto &engine) {
                           std::string name = engine.param;
                           for (char &character : name)
                             character =
                                 std::isalnum(static_cast<unsigned char>(character)) != 0 ? character : '_';
                           return name;
                         });

TEST(LinuxWebView, ThereIsNoneUnlessTheHostHasLoadedAnEngine) {
  LinuxWebViewService service;
  EXPECT_EQ(service.makeWebView(), nullptr);
  for (const char *const engine :
       {"libwebkit2gtk-4.0.so.37", "libwebkit2gtk-4.1.so.0", "libwebkitgtk-6.0.so.4"}) {
    EXPECT_EQ(dlopen(engine, RTLD_LAZY | RTLD_NOLOAD), nullptr) << engine;
  }
}

TEST(LinuxWebView, OtherLibrariesAreNoEngines) {
  const LoadedEngine other("libother-stand-in.so");
  other.setDisplay(true);
  EXPECT_EQ(LinuxWebViewService().makeWebView(), nullptr);
}

}  // namespace
}  // namespace kx
