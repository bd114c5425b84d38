#include "platform/linux/facts/LinuxBundle.h"

#include <gio/gio.h>

#include <sstream>
#include <utility>

#include "platform/linux/facts/SystemText.h"

namespace kx {

namespace {

/// The file name in the first word of a command line of a shell.
std::optional<std::string> executableName(const char *commandLine) {
  gchar **words = nullptr;
  if (g_shell_parse_argv(commandLine, nullptr, &words, nullptr) == FALSE) return std::nullopt;
  const std::string path = words[0];  // there is one, or the parsing fails
  g_strfreev(words);
  return validText(path.substr(path.rfind('/') + 1));
}

}  // namespace

LinuxBundle::LinuxBundle(const std::optional<std::string> &identifier, Environment environment)
    : identifier_(identifier ? validText(*identifier) : std::nullopt), environment_(std::move(environment)) {}

std::optional<std::string> LinuxBundle::hostIdentifier(const std::optional<std::string> &given,
                                                       const std::optional<FlatpakSandbox> &sandbox) {
  GApplication *const application = g_application_get_default();
  const gchar *const identifier =
      application == nullptr ? nullptr : g_application_get_application_id(application);
  if (identifier != nullptr) return identifier;
  auto ofHost = given ? validText(*given) : std::nullopt;
  if (ofHost) return ofHost;
  return sandbox ? sandbox->applicationIdentifier() : std::nullopt;
}

std::shared_ptr<Bundle> LinuxBundle::mainBundle() {
  return identifier_ ? strong(*this) : nullptr;
}

std::shared_ptr<Bundle> LinuxBundle::bundleWithIdentifier(const std::optional<std::string> &requested) {
  return requested && requested == identifier_ ? strong(*this) : nullptr;
}

std::vector<std::string> LinuxBundle::entryDirectories() const {
  const auto home = environment_.value("HOME");
  auto dataHome = environment_.value("XDG_DATA_HOME");
  if (!dataHome && home) dataHome = *home + "/.local/share";
  const auto dataDirectories = environment_.value("XDG_DATA_DIRS").value_or("/usr/local/share:/usr/share");

  std::vector<std::string> directories;
  const auto add = [&directories](const std::string &base) {
    if (!base.empty() && base[0] == '/') directories.push_back(base + "/applications/");
  };
  if (dataHome) add(*dataHome);
  std::istringstream list(dataDirectories);
  for (std::string base; std::getline(list, base, ':');) add(base);
  return directories;
}

// Read as the small text file that it is: GDesktopAppInfo would start GLib's own worker thread, for good, and
// have it watch these directories.
std::optional<std::string> LinuxBundle::desktopEntry() const {
  if (!identifier_ || identifier_->find('/') != std::string::npos) return std::nullopt;
  for (const std::string &directory : entryDirectories()) {
    if (auto entry = readSmallFile(directory + *identifier_ + ".desktop")) return entry;
  }
  return std::nullopt;
}

std::optional<Value> LinuxBundle::objectForInfoDictionaryKey(const std::string &key) {
  if (key != "CFBundleExecutable") return std::nullopt;
  const auto entry = desktopEntry();
  if (!entry) return std::nullopt;
  const std::unique_ptr<GKeyFile, void (*)(GKeyFile *)> keys(g_key_file_new(), &g_key_file_unref);
  g_key_file_load_from_data(keys.get(), entry->data(), entry->size(), G_KEY_FILE_NONE, nullptr);
  const std::unique_ptr<gchar, void (*)(gpointer)> exec(
      g_key_file_get_string(keys.get(), G_KEY_FILE_DESKTOP_GROUP, G_KEY_FILE_DESKTOP_KEY_EXEC, nullptr),
      &g_free);
  if (exec == nullptr) return std::nullopt;
  const auto name = executableName(exec.get());
  return name ? std::optional<Value>(*name) : std::nullopt;
}

}  // namespace kx
