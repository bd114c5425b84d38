#include "platform/linux/facts/Environment.h"

#include <glib.h>

namespace kx {

Environment Environment::ofProcess(std::initializer_list<const char *> names) {
  std::map<std::string, std::string> variables;
  for (const char *const name : names) {
    if (const char *const value = g_getenv(name)) variables.emplace(name, value);
  }
  return Environment(std::move(variables));
}

std::optional<std::string> Environment::value(const std::string &name) const {
  const auto found = variables_.find(name);
  if (found == variables_.end() || found->second.empty()) return std::nullopt;
  return found->second;
}

}  // namespace kx
