#include "platform/linux/https/CurlURLSession.h"

#include <arpa/inet.h>
#include <glib.h>
#include <net/if.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/linux/https/CurlRequest.h"
#include "platform/linux/https/CurlTransport.h"

namespace kx {

namespace {

constexpr std::string_view scheme = "https://";
constexpr std::size_t maximumURLSize = std::size_t{8} * 1024;  // bytes; servers refuse longer request lines

CurlSettings settingsWith(std::optional<std::string> certificateAuthorityFile) {
  CurlSettings settings;
  settings.certificateAuthorityFile = std::move(certificateAuthorityFile);
  return settings;
}

bool isIPv6Address(const std::string &text) {
  in6_addr address{};
  return inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

bool isName(const std::string &text) {
  return !text.empty() &&
         text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~") ==
             std::string::npos;
}

/// Whether that can be looked up, or be an address as it is.
bool isHost(const std::string &host, bool inBrackets) {
  if (!inBrackets) return isName(host);
  const std::size_t percent = host.find('%');
  if (percent == std::string::npos) return isIPv6Address(host);
  const std::string zone = host.substr(percent + 1);
  return isIPv6Address(host.substr(0, percent)) && isName(zone) && zone.size() < IF_NAMESIZE;
}

/// Whether a URL, up to its path, has a host, maybe a port, and nothing else.
bool leadsToHost(const std::string &beginning) {
  char *user = nullptr;
  char *host = nullptr;
  int port = 0;
  const bool isURL = g_uri_split(beginning.c_str(), G_URI_FLAGS_NONE, nullptr, &user, &host, &port, nullptr,
                                 nullptr, nullptr, nullptr) != FALSE;
  const std::unique_ptr<char, void (*)(void *)> userOwner(user, &g_free);
  const std::unique_ptr<char, void (*)(void *)> hostOwner(host, &g_free);
  if (!isURL || user != nullptr || host == nullptr || port == 0) return false;
  return isHost(host, beginning.compare(scheme.size(), 1, "[") == 0);
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
  if (text.size() > maximumURLSize || text.compare(0, scheme.size(), scheme) != 0) return std::nullopt;
  const bool visible = std::all_of(text.begin(), text.end(),
                                   [](char character) { return character > ' ' && character <= '~'; });
  if (!visible) return std::nullopt;

  // By GLib, for curl may not be there yet. It refuses no less than curl does.
  const std::size_t end = text.find_first_of("/?#", scheme.size());
  return leadsToHost(text.substr(0, end)) ? std::optional<URL>(URL{text}) : std::nullopt;
}

std::shared_ptr<URLSession> CurlURLSessionService::sessionWithDefaultConfiguration() {
  return std::make_shared<Session>(transport_, dispatch_.globalQueue(DispatchQueuePriority::standard));
}

}  // namespace kx
