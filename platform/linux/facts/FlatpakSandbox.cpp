#include "platform/linux/facts/FlatpakSandbox.h"

#include <glib.h>

#include <memory>

#include "platform/linux/facts/SystemText.h"

namespace kx {

namespace {

struct Release {
  void operator()(GKeyFile *keys) const { g_key_file_unref(keys); }
  void operator()(gchar *text) const { g_free(text); }
  void operator()(gchar **texts) const { g_strfreev(texts); }
};
template <class T>
using Owned = std::unique_ptr<T, Release>;

constexpr const char *systemBusPolicy = "System Bus Policy";

std::optional<std::string> textOf(GKeyFile *keys, const char *group, const char *key) {
  const Owned<gchar> text(g_key_file_get_string(keys, group, key, nullptr));
  return text == nullptr ? std::nullopt : validText(text.get());
}

/// The texts in a list that ends with a null pointer; none in a null list.
std::set<std::string> setOf(gchar **texts) {
  std::set<std::string> set;
  for (gchar **text = texts; text != nullptr && *text != nullptr; ++text) set.emplace(*text);
  return set;
}

}  // namespace

std::optional<FlatpakSandbox> FlatpakSandbox::ofProcess(const std::string &root) {
  const auto contents = readSmallFile(root + file);
  if (!contents) return std::nullopt;
  const Owned<GKeyFile> keys(g_key_file_new());
  g_key_file_load_from_data(keys.get(), contents->data(), contents->size(), G_KEY_FILE_NONE, nullptr);

  FlatpakSandbox sandbox;
  sandbox.applicationIdentifier_ = textOf(keys.get(), "Application", "name");
  const Owned<gchar *> sockets(
      g_key_file_get_string_list(keys.get(), "Context", "sockets", nullptr, nullptr));
  sandbox.hasSystemBus_ = setOf(sockets.get()).count("system-bus") != 0;
  const Owned<gchar *> names(g_key_file_get_keys(keys.get(), systemBusPolicy, nullptr, nullptr));
  for (const std::string &name : setOf(names.get())) {
    const auto policy = textOf(keys.get(), systemBusPolicy, name.c_str());
    if (policy == "talk" || policy == "own") sandbox.systemServices_.insert(name);
  }
  return sandbox;
}

bool FlatpakSandbox::reachesSystemService(const std::string &name) const {
  if (hasSystemBus_ || systemServices_.count(name) != 0) return true;
  for (std::size_t end = name.size(); end != std::string::npos && end != 0; end = name.rfind('.', end - 1)) {
    if (systemServices_.count(name.substr(0, end) + ".*") != 0) return true;
  }
  return false;
}

}  // namespace kx
