#include "tests/platform/linux/https/InterposedCalls.h"

#include <curl/curl.h>
#include <dlfcn.h>
#include <netdb.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <string_view>

namespace kx {

namespace {

struct Record {
  std::mutex mutex;
  std::string insteadOfCurl;
  void *curl = nullptr;  ///< where it has been opened
  std::vector<std::string> curlThreads;
  std::vector<std::string> environmentReads;
  std::atomic<int> stalledResolutions{0};
  std::atomic<int> polls{0};
  std::atomic<bool> initialisationHasBegun{false};
  void (*firstAtExit)() = nullptr;  ///< null when TLS was initialised before
  void (*lastAtExit)() = nullptr;   ///< of those given to TLS since
  std::atomic<bool> exhausted{false};
  std::atomic<bool> shallHang{false};
  std::atomic<bool> shallHangAtThreadsEnd{false};
  std::atomic<bool> hangs{false};
};

/// Never destroyed: threads call until the process is gone.
Record &record() {
  static Record &record = *[] {
    auto *const made = new Record;
    for (char **variable = environ; *variable != nullptr; ++variable) {
      const std::string_view text = *variable;
      constexpr std::string_view name = "KX_TEST_CURL=";
      if (text.substr(0, name.size()) == name) made->insteadOfCurl = text.substr(name.size());
    }
    return made;
  }();
  return record;
}

std::string threadName() {
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return name.data();
}

std::string fileInsteadOfCurl() {
  const std::lock_guard<std::mutex> lock(record().mutex);
  return record().insteadOfCurl;
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
  void *const next = dlsym(RTLD_NEXT, name);
  if (next != nullptr) return reinterpret_cast<Function *>(next);
  const std::lock_guard<std::mutex> lock(record().mutex);
  return reinterpret_cast<Function *>(dlsym(record().curl, name));
}

/// The calling thread will not end. The value is made late, and so destroyed after those of the same round
/// that there were before.
void stayAlive() {
  pthread_key_t key{};
  const int error = pthread_key_create(&key, [](void *) {
    record().hangs = true;
    while (true) pause();
  });
  if (error != 0 || pthread_setspecific(key, &record()) != 0) std::abort();
}

bool endsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace

std::vector<std::string> InterposedCalls::curlThreads() {
  const std::lock_guard<std::mutex> lock(record().mutex);
  return record().curlThreads;
}

bool InterposedCalls::initialisationHasBegun() {
  return record().initialisationHasBegun;
}

bool InterposedCalls::firstAtExitIsTheLastToo() {
  const std::lock_guard<std::mutex> lock(record().mutex);
  return record().firstAtExit != nullptr && record().lastAtExit == record().firstAtExit;
}

void InterposedCalls::openInsteadOfCurl(const std::string &file) {
  const std::lock_guard<std::mutex> lock(record().mutex);
  record().insteadOfCurl = file;
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

void InterposedCalls::hangAtThreadsEnd() {
  record().shallHangAtThreadsEnd = true;
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
  const auto next = kx::next<decltype(curl_global_init)>("curl_global_init");
  kx::record().initialisationHasBegun = true;
  return next(flags);
}

// TLS itself calls it, too.
__attribute__((visibility("default"))) int OPENSSL_atexit(void (*handler)()) {
  {
    const std::lock_guard<std::mutex> lock(kx::record().mutex);
    (kx::record().initialisationHasBegun ? kx::record().lastAtExit : kx::record().firstAtExit) = handler;
  }
  return kx::next<int(void (*)())>("OPENSSL_atexit")(handler);
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
  if (kx::record().exhausted) return CURLM_OUT_OF_MEMORY;
  return kx::next<decltype(curl_multi_perform)>("curl_multi_perform")(multi, running);
}

__attribute__((visibility("default"))) CURLMcode curl_multi_poll(CURLM *multi, curl_waitfd *extra,
                                                                 unsigned extraCount, int timeout,
                                                                 int *ready) {
  ++kx::record().polls;
  if (kx::record().shallHangAtThreadsEnd.exchange(false)) kx::stayAlive();
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

void *dlopenOfTest(const char *file, int mode) noexcept;
void *dlopenOfTest(const char *file, int mode) noexcept {
  kx::noteCurlThread();
  const std::string other = kx::fileInsteadOfCurl();
  void *const library = dlopen(other.empty() ? file : other.c_str(), mode);
  const std::lock_guard<std::mutex> lock(kx::record().mutex);
  return kx::record().curl = library;
}

void *dlsymOfTest(void *library, const char *name) noexcept;
void *dlsymOfTest(void *library, const char *name) noexcept {
  void *const function = dlsym(library, name);
  if (function == nullptr) return nullptr;
  constexpr std::array<std::string_view, 6> interposed = {"curl_global_init", "curl_easy_init",
                                                          "curl_multi_init",  "curl_multi_perform",
                                                          "curl_multi_poll",  "OPENSSL_atexit"};
  const bool isInterposed = std::find(interposed.begin(), interposed.end(), name) != interposed.end();
  return isInterposed ? dlsym(RTLD_DEFAULT, name) : function;
}

}  // extern "C"
