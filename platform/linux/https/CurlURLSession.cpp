#include "platform/linux/https/CurlURLSession.h"

#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/linux/https/CurlRequest.h"
#include "platform/linux/https/CurlTransport.h"

namespace kx {

namespace {

constexpr std::size_t maximumURLSize = std::size_t{8} * 1024;  // bytes; servers refuse longer request lines

CurlSettings settingsWith(std::optional<std::string> certificateAuthorityFile) {
  CurlSettings settings;
  settings.certificateAuthorityFile = std::move(certificateAuthorityFile);
  return settings;
}

}  // namespace

class CurlURLSessionService::Task : public URLSessionUploadTask {
 public:
  Task(std::shared_ptr<CurlTransport> transport, DispatchQueue &queue, URLRequest request,
       std::optional<Data> body, URLSession::CompletionHandler completionHandler)
      : transport_(std::move(transport)),
        queue_(queue),
        request_(std::move(request)),
        body_(std::move(body)),
        completionHandler_(std::move(completionHandler)) {}

  void resume() override {
    if (resumed_.exchange(true)) return;
    resumingThread_ = std::this_thread::get_id();
    transport_->start(
        std::make_unique<CurlRequest>(std::move(request_), std::exchange(body_, std::nullopt),
                                      [task = strong(*this)](const auto &response, const auto &error) {
                                        task->complete(response, error);
                                      }));
    resumingThread_ = std::thread::id();
  }

 private:
  /// On the transport's thread, which is the session's queue; or from within `resume`, whose caller does not
  /// expect it.
  void complete(const std::shared_ptr<URLResponse> &response, const std::optional<Error> &error) {
    if (resumingThread_ == std::this_thread::get_id()) {
      try {
        return queue_.async([task = strong(*this), response, error] { task->tell(response, error); });
      } catch (const std::bad_alloc &) {  // better from within than never
      }
    }
    tell(response, error);
  }

  void tell(const std::shared_ptr<URLResponse> &response, const std::optional<Error> &error) {
    std::exchange(completionHandler_, nullptr)(response, error);
  }

  const std::shared_ptr<CurlTransport> transport_;
  DispatchQueue &queue_;
  std::atomic<bool> resumed_{false};
  std::atomic<std::thread::id> resumingThread_{};  ///< none once it has been resumed
  // Given away by the first `resume`.
  URLRequest request_;
  std::optional<Data> body_;
  URLSession::CompletionHandler completionHandler_;  ///< given away when it is called
};

class CurlURLSessionService::Session : public URLSession {
 public:
  Session(std::shared_ptr<CurlTransport> transport, DispatchQueue &queue)
      : transport_(std::move(transport)), queue_(queue) {}

  std::shared_ptr<URLSessionUploadTask> uploadTaskWithRequest(const URLRequest &request,
                                                              std::optional<Data> fromData,
                                                              CompletionHandler completionHandler) override {
    if (invalidated_) return nullptr;
    return std::make_shared<Task>(transport_, queue_, request, std::move(fromData),
                                  std::move(completionHandler));
  }

  void finishTasksAndInvalidate() override { invalidated_ = true; }

 private:
  const std::shared_ptr<CurlTransport> transport_;
  DispatchQueue &queue_;
  std::atomic<bool> invalidated_{false};
};

CurlURLSessionService::CurlURLSessionService(Dispatch &dispatch,
                                             std::optional<std::string> certificateAuthorityFile)
    : CurlURLSessionService(dispatch, settingsWith(std::move(certificateAuthorityFile))) {}

CurlURLSessionService::CurlURLSessionService(Dispatch &dispatch, CurlSettings settings)
    : dispatch_(dispatch), transport_(std::make_shared<CurlTransport>(std::move(settings))) {}

std::optional<URL> CurlURLSessionService::URLWithString(const std::string &text) {
  constexpr std::string_view beginning = "https://";
  if (text.size() > maximumURLSize || text.compare(0, beginning.size(), beginning) != 0) return std::nullopt;
  // curl would forgive a third slash, and take what follows an absent host for the host.
  if (text.compare(beginning.size(), 1, "/") == 0) return std::nullopt;
  const bool visible = std::all_of(text.begin(), text.end(),
                                   [](char character) { return character > ' ' && character <= '~'; });
  if (!visible) return std::nullopt;

  // Works without curl's initialisation, and on any thread.
  const std::unique_ptr<CURLU, void (*)(CURLU *)> url(curl_url(), &curl_url_cleanup);
  if (url == nullptr) return std::nullopt;
  if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_DISALLOW_USER) != CURLUE_OK) {
    return std::nullopt;
  }
  return URL{text};
}

std::shared_ptr<URLSession> CurlURLSessionService::sessionWithDefaultConfiguration() {
  return std::make_shared<Session>(transport_, dispatch_.globalQueue(DispatchQueuePriority::standard));
}

}  // namespace kx
