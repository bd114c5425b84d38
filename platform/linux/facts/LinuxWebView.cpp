#include "platform/linux/facts/LinuxWebView.h"

#include <dlfcn.h>
#include <glib-object.h>
#include <link.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/linux/console/CallbackBoundary.h"
#include "platform/linux/facts/SystemText.h"

namespace kx {

namespace {

/// WebKitGTK with GTK 3 (the first two, with libsoup 2 and 3) and with GTK 4.
constexpr std::array<std::string_view, 3> engineNames{"libwebkit2gtk-4.0.so.37", "libwebkit2gtk-4.1.so.0",
                                                      "libwebkitgtk-6.0.so.4"};

int noteEngine(dl_phdr_info *library, std::size_t /*size*/, void *found) {
  const std::string_view path = library->dlpi_name;
  const std::string_view name = path.substr(path.rfind('/') + 1);
  for (const std::string_view engine : engineNames) {
    if (name.substr(0, engine.size()) == engine) {
      runAtBoundary([found, path] { *static_cast<std::string *>(found) = path; });
      return 1;
    }
  }
  return 0;
}

/// A library that the process has loaded; it stays loaded while this object exists.
class LoadedLibrary {
 public:
  /// The web engine's, or none. The loader is asked for a library that it has only: of another name it would
  /// search every library directory first, on the main thread.
  static LoadedLibrary engine() {
    std::string path;
    dl_iterate_phdr(&noteEngine, &path);
    return LoadedLibrary(path.empty() ? nullptr : dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD));
  }
  LoadedLibrary(LoadedLibrary &&other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  ~LoadedLibrary() {
    if (handle_ != nullptr) dlclose(handle_);
  }

  /// A function of the library's or of one that it depends on; a null pointer when there is none.
  template <class Function>
  Function *function(const char *name) const {
    return handle_ == nullptr ? nullptr : reinterpret_cast<Function *>(dlsym(handle_, name));
  }

 private:
  explicit LoadedLibrary(void *handle) : handle_(handle) {}

  void *handle_;
};

class EngineSettings : public WebView {
 public:
  using MakeSettings = gpointer();
  using UserAgentOf = const gchar *(gpointer settings);

  EngineSettings(LoadedLibrary engine, MakeSettings *makeSettings, UserAgentOf *userAgentOf)
      : engine_(std::move(engine)), makeSettings_(makeSettings), userAgentOf_(userAgentOf) {}

  std::optional<std::string> stringByEvaluatingJavaScriptFromString(const std::string &script) override {
    if (script != "navigator.userAgent") return std::nullopt;
    const std::unique_ptr<void, void (*)(gpointer)> settings(makeSettings_(), &g_object_unref);
    const gchar *const userAgent = settings == nullptr ? nullptr : userAgentOf_(settings.get());
    return userAgent == nullptr ? std::nullopt : validText(userAgent);
  }

 private:
  const LoadedLibrary engine_;
  MakeSettings *const makeSettings_;
  UserAgentOf *const userAgentOf_;
};

}  // namespace

std::unique_ptr<WebView> LinuxWebViewService::makeWebView() {
  LoadedLibrary engine = LoadedLibrary::engine();
  auto *const defaultDisplay = engine.function<gpointer()>("gdk_display_get_default");
  auto *const makeSettings = engine.function<EngineSettings::MakeSettings>("webkit_settings_new");
  auto *const userAgentOf = engine.function<EngineSettings::UserAgentOf>("webkit_settings_get_user_agent");
  if (defaultDisplay == nullptr || makeSettings == nullptr || userAgentOf == nullptr) return nullptr;
  if (defaultDisplay() == nullptr) return nullptr;
  return std::make_unique<EngineSettings>(std::move(engine), makeSettings, userAgentOf);
}

}  // namespace kx
