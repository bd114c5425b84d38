#include "tests/platform/linux/https/InterposedCalls.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <netdb.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <mutex>
#include <string_view>
#include <utility>

namespace kx {

namespace {

struct Record {
  std::mutex mutex;
  std::vector<std::string> curlThreads;
  std::string systemBundle;
  std::atomic<int> stalledResolutions{0};
  std::atomic<int> polls{0};
  std::atomic<bool> exhausted{false};
};

/// Never destroyed: threads call until the process is gone.
Record &record() {
  static Record &record = *new Record;
  return record;
}

void noteCurlThread() {
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  const std::lock_guard<std::mutex> lock(record().mutex);
  record().curlThreads.emplace_back(name.data());
}

template <class Function>
Function *next(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

bool endsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace

std::vector<std::string> InterposedCalls::curlThreads() {
  const std::lock_guard<std::mutex> lock(record().mutex);
  return record().curlThreads;
}

int InterposedCalls::stalledResolutions() {
  return record().stalledResolutions;
}

void InterposedCalls::setSystemBundle(std::string path) {
  const std::lock_guard<std::mutex> lock(record().mutex);
  record().systemBundle = std::move(path);
}

void InterposedCalls::setExhausted(bool exhausted) {
  record().exhausted = exhausted;
}

int InterposedCalls::polls() {
  return record().polls;
}

}  // namespace kx

extern "C" {

__attribute__((visibility("default"))) CURLcode curl_global_init(long flags) {
  kx::noteCurlThread();
  return kx::next<decltype(curl_global_init)>("curl_global_init")(flags);
}

__attribute__((visibility("default"))) CURL *curl_easy_init() {
  kx::noteCurlThread();
  return kx::next<decltype(curl_easy_init)>("curl_easy_init")();
}

__attribute__((visibility("default"))) CURLM *curl_multi_init() {
  kx::noteCurlThread();
  if (kx::record().exhausted) return nullptr;
  return kx::next<decltype(curl_multi_init)>("curl_multi_init")();
}

__attribute__((visibility("default"))) CURLMcode curl_multi_poll(CURLM *multi, curl_waitfd *extra,
                                                                 unsigned extraCount, int timeout,
                                                                 int *ready) {
  ++kx::record().polls;
  return kx::next<decltype(curl_multi_poll)>("curl_multi_poll")(multi, extra, extraCount, timeout, ready);
}

// Under a name of its own, since arguments can follow a number but not an enumerator.
__attribute__((visibility("default"))) CURLcode interposedGetInfo(CURL *easy, unsigned info,
                                                                  ...) __asm__("curl_easy_getinfo");
CURLcode interposedGetInfo(CURL *easy, unsigned info, ...) {
  va_list arguments;
  va_start(arguments, info);
  void *const result = va_arg(arguments, void *);
  va_end(arguments);
  if (info == CURLINFO_CAINFO) {
    const std::lock_guard<std::mutex> lock(kx::record().mutex);
    if (!kx::record().systemBundle.empty()) {
      *static_cast<const char **>(result) = kx::record().systemBundle.c_str();
      return CURLE_OK;
    }
  }
  return kx::next<decltype(curl_easy_getinfo)>("curl_easy_getinfo")(easy, static_cast<CURLINFO>(info),
                                                                    result);
}

__attribute__((visibility("default"))) int getaddrinfo(const char *node, const char *service,
                                                       const addrinfo *hints, addrinfo **result) {
  const std::string_view name = node == nullptr ? "" : node;
  if (kx::endsWith(name, "stalled.invalid")) {
    ++kx::record().stalledResolutions;
    while (true) pause();
  }
  if (kx::endsWith(name, ".invalid")) return EAI_NONAME;
  return kx::next<decltype(getaddrinfo)>("getaddrinfo")(node, service, hints, result);
}

}  // extern "C"
