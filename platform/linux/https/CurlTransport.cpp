#include "platform/linux/https/CurlTransport.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <limits>
#include <new>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/linux/console/CallbackBoundary.h"
#include "platform/linux/https/CurlProcess.h"
#include "platform/linux/https/CurlTrust.h"

namespace kx {

namespace {

constexpr const char *threadName = "kx-transport";
constexpr const char *outOfResources = "curl has run out of memory or file descriptors";
constexpr const char *processEnds = "The process is ending";

Error initialisationError(const char *reason) {
  return {"libcurl", CURLE_FAILED_INIT, reason};
}

/// Starts a thread that nobody waits for; an error number when there can be no more.
int startDetachedThread(std::size_t stackSize, void *(*main)(void *), void *argument) {
  pthread_attr_t attributes;
  if (const int error = pthread_attr_init(&attributes)) return error;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, stackSize);
  // Inherited by the thread, so that it never has another mask.
  sigset_t blocked;
  sigfillset(&blocked);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) sigdelset(&blocked, fault);
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  pthread_t thread{};
  const int error = pthread_create(&thread, &attributes, main, argument);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  return error;
}

}  // namespace

/// What the thread works with: curl's handles and the requests in flight. Made and used on the thread alone.
class CurlTransport::Loop {
 public:
  explicit Loop(CurlTransport &transport)
      : transport_(transport),
        trust_(transport.settings_),
        shared_(curl_share_init()),
        multi_(curl_multi_init()) {
    // Requests share session tickets, so that a new connection to a known server is a short one.
    if (shared_ != nullptr) curl_share_setopt(shared_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    if (multi_ != nullptr) {
      CurlProcess::watch(multi_);
      transport_.setWakeable(multi_);
    }
  }
  Loop(const Loop &) = delete;
  Loop &operator=(const Loop &) = delete;
  ~Loop() {
    if (multi_ != nullptr) {
      transport_.setWakeable(nullptr);
      CurlProcess::unwatch(multi_);
    }
    while (!requests_.empty()) take(requests_.size() - 1)->fail(initialisationError(outOfResources));
    curl_multi_cleanup(multi_);
    curl_share_cleanup(shared_);
  }

  /// Runs requests until there have been none for the time of the linger. False when it cannot go on before.
  bool run() {
    // Without the sockets that wake it the thread would sleep through new requests.
    if (shared_ == nullptr || multi_ == nullptr || curl_multi_wakeup(multi_) != CURLM_OK) return false;
    stayUntil_ = Clock::now() + transport_.settings_.linger;
    do {
      CurlProcess::stopIfEnding();
      admit();
      int unfinished = 0;
      CURLMcode result = curl_multi_perform(multi_, &unfinished);
      finish();
      expire();
      if (result == CURLM_OK) result = curl_multi_poll(multi_, nullptr, 0, millisecondsToSleep(), nullptr);
      if (result != CURLM_OK) return false;
    } while (!requests_.empty() || Clock::now() < stayUntil_);
    return true;
  }

 private:
  using Clock = CurlRequest::Clock;

  void admit() {
    for (auto &request : transport_.takeWaiting()) {
      if (const auto error = request->prepare(transport_.settings_, trust_, shared_)) {
        request->fail(*error);
        continue;
      }
      requests_.push_back(std::move(request));
      const CURLMcode result = curl_multi_add_handle(multi_, requests_.back()->easy());
      if (result != CURLM_OK) take(requests_.size() - 1)->fail(initialisationError(outOfResources));
    }
  }

  void finish() {
    int left = 0;
    while (const CURLMsg *const message = curl_multi_info_read(multi_, &left)) {
      const CURLcode result = message->data.result;
      for (std::size_t i = 0; i < requests_.size(); ++i) {
        if (requests_[i]->easy() != message->easy_handle) continue;
        take(i)->end(result);
        break;
      }
    }
  }

  void expire() {
    const Clock::time_point now = Clock::now();
    for (std::size_t i = requests_.size(); i-- > 0;) {
      if (requests_[i]->isOverdue(now)) take(i)->expire();
    }
  }

  /// Takes a request out of curl's hands, which closes its connection unless curl is through with it.
  std::unique_ptr<CurlRequest> take(std::size_t index) {
    auto request = std::move(requests_[index]);
    requests_.erase(requests_.begin() + static_cast<std::ptrdiff_t>(index));
    curl_multi_remove_handle(multi_, request->easy());
    stayUntil_ = Clock::now() + transport_.settings_.linger;
    return request;
  }

  int millisecondsToSleep() const {
    Clock::time_point until = stayUntil_;
    if (!requests_.empty()) {
      until = (*std::min_element(requests_.begin(), requests_.end(), [](const auto &left, const auto &right) {
                return left->deadline() < right->deadline();
              }))->deadline();
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, std::numeric_limits<int>::max()));
  }

  CurlTransport &transport_;
  const CurlTrust trust_;
  CURLSH *const shared_;
  CURLM *const multi_;
  std::vector<std::unique_ptr<CurlRequest>> requests_;  ///< all of them are in curl's hands
  Clock::time_point stayUntil_;                         ///< when the thread ends if no request comes
};

void CurlTransport::start(std::unique_ptr<CurlRequest> request) {
  if (CurlProcess::isEnding()) return request->fail(initialisationError(processEnds));
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    waiting_.push_back(std::move(request));
    if (multi_ != nullptr) curl_multi_wakeup(multi_);
    if (std::exchange(threadRuns_, true)) return;
  }
  const auto error = startThread();
  if (!error) return;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    threadRuns_ = false;
  }
  failWaiting(*error);
}

std::optional<Error> CurlTransport::startThread() {
  std::unique_ptr<std::shared_ptr<CurlTransport>> self(
      new (std::nothrow) std::shared_ptr<CurlTransport>(shared_from_this()));
  if (self == nullptr) return initialisationError("There is no memory left");
  if (!CurlProcess::threadBegins()) return initialisationError(processEnds);
  if (const int error = startDetachedThread(settings_.threadStackSize, &threadMain, self.get())) {
    CurlProcess::threadFailed();
    return Error{"POSIX", error, std::generic_category().message(error)};
  }
  static_cast<void>(self.release());
  return std::nullopt;
}

void *CurlTransport::threadMain(void *transport) {
  pthread_setname_np(pthread_self(), threadName);
  const std::unique_ptr<std::shared_ptr<CurlTransport>> self(
      static_cast<std::shared_ptr<CurlTransport> *>(transport));
  (*self)->run();
  return nullptr;
}

void CurlTransport::run() {
  CurlProcess::stopIfEnding();
  const CURLcode initialised = CurlProcess::initialise();
  do {
    bool served = false;
    if (initialised == CURLE_OK) runAtBoundary([this, &served] { served = Loop(*this).run(); });
    if (!served) failWaiting(initialisationError(outOfResources));
  } while (!mayEnd());
}

bool CurlTransport::mayEnd() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!waiting_.empty()) return false;
  threadRuns_ = false;
  return true;
}

std::vector<std::unique_ptr<CurlRequest>> CurlTransport::takeWaiting() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(waiting_, {});
}

void CurlTransport::failWaiting(const Error &error) {
  for (auto &request : takeWaiting()) request->fail(error);
}

void CurlTransport::setWakeable(CURLM *multi) {
  const std::lock_guard<std::mutex> lock(mutex_);
  multi_ = multi;
}

}  // namespace kx
