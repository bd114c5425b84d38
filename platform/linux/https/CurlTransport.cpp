#include "platform/linux/https/CurlTransport.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/console/CallbackBoundary.h"
#include "platform/linux/https/CurlProcess.h"
#include "platform/linux/https/CurlSockets.h"
#include "platform/linux/https/CurlWakeUp.h"
#include "platform/linux/threads/ForkedChild.h"
#include "platform/linux/threads/LinuxWorkerPool.h"

namespace kx {

namespace {

constexpr const char *threadName = "kx-transport";
constexpr const char *outOfResources = "curl has run out of memory or file descriptors";
constexpr const char *processEnds = "The process is ending";
constexpr const char *processIsForked = "The process was forked";
constexpr const char *tooManyWait = "Too many requests are waiting";

}  // namespace

/// What the thread works with: curl's handles and the requests in flight. Made and used on the thread alone.
class CurlTransport::Loop {
 public:
  explicit Loop(CurlTransport &transport) : transport_(transport), multi_(curl_multi_init()) {
    if (multi_ == nullptr) return;
    curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS,
                      static_cast<long>(CurlSettings::maximumInFlight));
    curl_multi_setopt(multi_, CURLMOPT_MAX_TOTAL_CONNECTIONS, CurlSettings::maximumConnections);
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, CurlSettings::maximumConnections);
    CurlProcess::watch(multi_);
    transport_.setWakeable(multi_);
  }
  Loop(const Loop &) = delete;
  Loop &operator=(const Loop &) = delete;
  ~Loop() {
    if (multi_ != nullptr) {
      transport_.setWakeable(nullptr);
      CurlProcess::unwatch(multi_);
    }
    while (!requests_.empty()) take(requests_.size() - 1)->fail(outOfResources);
    curl_multi_cleanup(multi_);
  }

  /// Runs requests until there have been none for the time of the linger, or a connection is no good any
  /// more. False when it cannot go on before.
  bool run() {
    if (multi_ == nullptr) return false;
    // Without the sockets that wake it the thread would sleep through new requests.
    if (!closeWakeUpSocketsOnExec(multi_)) return false;
    requests_.reserve(CurlSettings::maximumInFlight);
    lastProgress_ = Clock::now();
    stayUntil_ = lastProgress_ + transport_.settings_.linger;
    do {
      // A server that says something unasked closes the connection, or has not kept to the end of its answer:
      // the next request would take the rest for its own. All connections go, which is simple.
      if (requests_.empty() && sockets_.speak()) return true;
      admit();
      int unfinished = 0;
      if (curl_multi_perform(multi_, &unfinished) != CURLM_OK) return false;
      finish();
      expire();
      const CurlProcess::Rest rest;
      if (!mayAdmit() && sleep() != CURLM_OK) return false;
    } while (!requests_.empty() || mayAdmit() || Clock::now() < stayUntil_);
    return true;
  }

 private:
  using Clock = CurlRequest::Clock;

  bool mayAdmit() const { return requests_.size() < CurlSettings::maximumInFlight && transport_.anyWaits(); }

  void admit() {
    while (requests_.size() < CurlSettings::maximumInFlight) {
      auto request = transport_.takeWaiting();
      if (request == nullptr) return;
      begin(std::move(request));
    }
  }

  void begin(std::unique_ptr<CurlRequest> request) {
    requests_.push_back(std::move(request));  // first: one that is lost on the way is still to be failed
    const auto error = requests_.back()->prepare(transport_.settings_, *transport_.trust_, sockets_,
                                                 transport_.shared_.get());
    if (error) {
      take(requests_.size() - 1)->fail(*error);
    } else if (curl_multi_add_handle(multi_, requests_.back()->easy()) != CURLM_OK) {
      take(requests_.size() - 1)->fail(outOfResources);
    }
  }

  void finish() {
    int left = 0;
    while (const CURLMsg *const message = curl_multi_info_read(multi_, &left)) {
      const CURLcode result = message->data.result;
      for (std::size_t i = 0; i < requests_.size(); ++i) {
        if (requests_[i]->easy() != message->easy_handle) continue;
        auto request = take(i);
        if (request->isBarred(result) && transport_.trust_->lookFurther()) {
          begin(std::move(request));
        } else {
          request->end(result);
        }
        break;
      }
    }
  }

  void expire() {
    const Clock::time_point now = Clock::now();
    for (std::size_t i = requests_.size(); i-- > 0;) {
      if (requests_[i]->isOverdue(now)) take(i)->expire();
    }
    for (const auto &request : requests_) noteProgress(*request);
    auto overdue = transport_.firstOverdue(lastProgress_);
    while (overdue && *overdue <= now) {
      transport_.takeWaiting()->expire();
      overdue = transport_.firstOverdue(lastProgress_);
    }
  }

  /// That a request has had its turn is no progress, or those behind it would wait for as long again.
  void noteProgress(const CurlRequest &request) {
    if (request.hasProgressed()) lastProgress_ = std::max(lastProgress_, request.lastProgress());
  }

  /// Takes a request out of curl's hands, which closes its connection unless curl is through with it.
  std::unique_ptr<CurlRequest> take(std::size_t index) {
    auto request = std::move(requests_[index]);
    requests_.erase(requests_.begin() + static_cast<std::ptrdiff_t>(index));
    noteProgress(*request);
    curl_multi_remove_handle(multi_, request->easy());
    stayUntil_ = Clock::now() + transport_.settings_.linger;
    return request;
  }

  /// Sleeps until there is something to do. Between requests it listens to the connections that are kept.
  CURLMcode sleep() {
    Clock::time_point until = stayUntil_;
    if (!requests_.empty()) {
      until = (*std::min_element(requests_.begin(), requests_.end(), [](const auto &left, const auto &right) {
                return left->deadline() < right->deadline();
              }))->deadline();
      if (const auto waits = transport_.firstOverdue(lastProgress_)) until = std::min(until, *waits);
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    const auto milliseconds = std::clamp<long long>(left, 0, std::numeric_limits<int>::max());
    if (!requests_.empty())
      return curl_multi_poll(multi_, nullptr, 0, static_cast<int>(milliseconds), nullptr);
    auto &watched = sockets_.watched();
    return curl_multi_poll(multi_, watched.data(), static_cast<unsigned>(watched.size()),
                           static_cast<int>(milliseconds), nullptr);
  }

  CurlTransport &transport_;
  CurlSockets sockets_;  // outlives the connections
  CURLM *const multi_;
  std::vector<std::unique_ptr<CurlRequest>> requests_;  ///< all of them are in curl's hands
  Clock::time_point lastProgress_;                      ///< of any request
  Clock::time_point stayUntil_;                         ///< when the thread ends if no request comes
};

template <class Fail>
void CurlTransport::failWaiting(Fail fail) {
  while (const auto request = takeWaiting()) fail(*request);
}

void CurlTransport::start(std::unique_ptr<CurlRequest> request) {
  if (ForkedChild::isThisProcess()) return request->fail(processIsForked);
  if (CurlProcess::isEnding()) return request->fail(processEnds);
  if (settings_.heldByRequest != nullptr) request->hold(settings_.heldByRequest());
  bool needsThread = false;
  std::unique_ptr<CurlRequest> refused;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (waiting_.size() >= settings_.maximumWaiting) {
      refused = std::move(request);
    } else {
      // Where there are some already, the thread has been woken, or it will look when one has ended.
      if (multi_ != nullptr && waiting_.empty()) curl_multi_wakeup(multi_);
      waiting_.push_back(std::move(request));
      needsThread = !std::exchange(threadRuns_, true);
    }
  }
  if (refused != nullptr) return refused->fail(tooManyWait);
  if (!needsThread) return;
  // What goes wrong may be that there is no memory: nothing here takes any.
  const int error = startThread();
  if (error == 0) return;
  do failWaiting([error](CurlRequest &one) { one.failWithErrorNumber(error); });
  while (!mayEnd());
}

int CurlTransport::startThread() {
  std::unique_ptr<std::shared_ptr<CurlTransport>> self(
      new (std::nothrow) std::shared_ptr<CurlTransport>(shared_from_this()));
  if (self == nullptr) return ENOMEM;
  if (!CurlProcess::threadBegins()) return ECANCELED;
  const int error = LinuxWorkerPool::startThread(settings_.threadStackSize, &threadMain, self.get());
  if (error == 0) {
    static_cast<void>(self.release());
  } else {
    CurlProcess::threadFailed();
  }
  return error;
}

void *CurlTransport::threadMain(void *transport) {
  pthread_setname_np(pthread_self(), threadName);
  const std::unique_ptr<std::shared_ptr<CurlTransport>> self(
      static_cast<std::shared_ptr<CurlTransport> *>(transport));
  (*self)->run();
  return nullptr;
}

void CurlTransport::run() {
  CurlProcess::beginWork();
  std::optional<std::string> failure;
  bool isReady = false;
  runAtBoundary([&] {
    failure = CurlProcess::initialise();
    isReady = !failure;
  });
  do {
    bool served = false;
    if (isReady) runAtBoundary([&] { served = isPrepared() && Loop(*this).run(); });
    const char *const reason = failure ? failure->c_str() : outOfResources;
    if (!served) failWaiting([reason](CurlRequest &one) { one.fail(reason); });
  } while (!mayEnd());
}

bool CurlTransport::isPrepared() {
  if (trust_ == nullptr) trust_ = std::make_unique<CurlTrust>(settings_);
  if (shared_ == nullptr) {
    shared_.reset(curl_share_init());
    if (shared_ == nullptr) return false;
    curl_share_setopt(shared_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  }
  return true;
}

bool CurlTransport::mayEnd() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!waiting_.empty()) return false;
  threadRuns_ = false;
  return true;
}

std::unique_ptr<CurlRequest> CurlTransport::takeWaiting() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (waiting_.empty()) return nullptr;
  auto request = std::move(waiting_.front());
  waiting_.pop_front();
  return request;
}

bool CurlTransport::anyWaits() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return !waiting_.empty();
}

std::optional<CurlRequest::Clock::time_point> CurlTransport::firstOverdue(
    CurlRequest::Clock::time_point lastProgress) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (waiting_.empty()) return std::nullopt;
  const auto made = waiting_.front()->made();
  return std::min(std::max(made, lastProgress) + settings_.timeoutWithoutProgress,
                  made + settings_.timeoutForResource);
}

void CurlTransport::setWakeable(CURLM *multi) {
  const std::lock_guard<std::mutex> lock(mutex_);
  multi_ = multi;
}

}  // namespace kx
