#include <dlfcn.h>

#include "platform/linux/https/CurlFunctions.h"

namespace kx {

// NOLINTNEXTLINE(bugprone-macro-parentheses): a definition, not a value
#define KX_DEFINE(name) decltype(&::name) name = &::name
KX_CURL_FUNCTIONS(KX_DEFINE);
#undef KX_DEFINE

std::optional<std::string> CurlLibrary::open() {
  return std::nullopt;
}

void *CurlLibrary::symbol(const char *name) {
  return dlsym(RTLD_DEFAULT, name);
}

}  // namespace kx
