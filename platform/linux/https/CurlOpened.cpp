#include <dlfcn.h>

#include <mutex>
#include <type_traits>

#include "platform/linux/https/CurlFunctions.h"

namespace kx {

// NOLINTNEXTLINE(bugprone-macro-parentheses): a definition, not a value
#define KX_DEFINE(name) decltype(&::name) name = nullptr
KX_CURL_FUNCTIONS(KX_DEFINE);
#undef KX_DEFINE

namespace {

// The name is that of the ABI, which has been the same since 2006.
constexpr const char *libraryName = "libcurl.so.4";
// What is asked of it came with 7.87: CURLOPT_QUICK_EXIT.
constexpr unsigned oldestVersion = 0x075700;

std::mutex mutex;  ///< guards what follows
void *opened = nullptr;

/// Null, or the name of a function that the library lacks.
const char *takeFunctions(void *library) {
  const char *missing = nullptr;
  const auto take = [&](auto &function, const char *name) {
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(library, name));
    if (function == nullptr && missing == nullptr) missing = name;
  };
#define KX_TAKE(name) take(name, #name)
  KX_CURL_FUNCTIONS(KX_TAKE);
#undef KX_TAKE
  return missing;
}

/// What is wrong with the library; absent when it will do.
std::optional<std::string> reasonAgainst(void *library) {
  const char *const missing = takeFunctions(library);
  if (missing != nullptr) return std::string(libraryName) + " has no " + missing;
  const curl_version_info_data &version = *curl_version_info(CURLVERSION_NOW);
  if (version.version_num >= oldestVersion) return std::nullopt;
  return std::string(libraryName) + " is of version " + version.version + ", which is too old";
}

}  // namespace

std::optional<std::string> CurlLibrary::open() {
  const std::lock_guard<std::mutex> lock(mutex);
  if (opened != nullptr) return std::nullopt;
  void *const library = dlopen(libraryName, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return dlerror();  // NOLINT(concurrency-mt-unsafe): each thread has its own
  if (auto reason = reasonAgainst(library)) {
    dlclose(library);  // or a better one could not be found under that name
    return reason;
  }
  opened = library;
  return std::nullopt;
}

void *CurlLibrary::symbol(const char *name) {
  const std::lock_guard<std::mutex> lock(mutex);
  return dlsym(opened, name);
}

}  // namespace kx
