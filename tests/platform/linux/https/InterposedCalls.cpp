#include "tests/platform/linux/https/InterposedCalls.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <netdb.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <string_view>

namespace kx {

namespace {

struct Record {
  std::mutex mutex;
  std::vector<std::string> curlThreads;
  std::vector<std::string> environmentReads;
  std::atomic<int> stalledResolutions{0};
  std::atomic<int> polls{0};
  std::atomic<bool> exhausted{false};
  std::atomic<bool> shallHang{false};
  std::atomic<bool> hangs{false};
};

/// Never destroyed: threads call until the process is gone.
Record &record() {
  static Record &record = *new Record;
  return record;
}

std::string threadName() {
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return name.data();
}

void noteCurlThread() {
  const std::lock_guard<std::mutex> lock(record().mutex);
  record().curlThreads.push_back(threadName());
}

/// Curl's own threads have the name of the one that makes them.
void noteEnvironmentRead(const char *name) {
  if (threadName() != "kx-transport") return;
  const std::lock_guard<std::mutex> lock(record().mutex);
  record().environmentReads.emplace_back(name);
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

std::vector<std::string> InterposedCalls::environmentReads() {
  const std::lock_guard<std::mutex> lock(record().mutex);
  return record().environmentReads;
}

void InterposedCalls::forgetEnvironmentReads() {
  const std::lock_guard<std::mutex> lock(record().mutex);
  record().environmentReads.clear();
}

void InterposedCalls::setExhausted(bool exhausted) {
  record().exhausted = exhausted;
}

void InterposedCalls::hang() {
  record().shallHang = true;
}

bool InterposedCalls::hangs() {
  return record().hangs;
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

__attribute__((visibility("default"))) CURLMcode curl_multi_perform(CURLM *multi, int *running) {
  if (kx::record().shallHang) {
    kx::record().hangs = true;
    while (true) pause();
  }
  return kx::next<decltype(curl_multi_perform)>("curl_multi_perform")(multi, running);
}

__attribute__((visibility("default"))) CURLMcode curl_multi_poll(CURLM *multi, curl_waitfd *extra,
                                                                 unsigned extraCount, int timeout,
                                                                 int *ready) {
  ++kx::record().polls;
  return kx::next<decltype(curl_multi_poll)>("curl_multi_poll")(multi, extra, extraCount, timeout, ready);
}

__attribute__((visibility("default"))) char *getenv(const char *name) {
  kx::noteEnvironmentRead(name);
  return kx::next<decltype(getenv)>("getenv")(name);
}

__attribute__((visibility("default"))) char *secure_getenv(const char *name) {
  kx::noteEnvironmentRead(name);
  return kx::next<decltype(secure_getenv)>("secure_getenv")(name);
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
