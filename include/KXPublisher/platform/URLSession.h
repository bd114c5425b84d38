#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KXPublisher/platform/foundation/Data.h"
#include "KXPublisher/platform/foundation/Error.h"
#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

/// A URL that the platform has accepted (NSURL); see `URLSessionService::URLWithString`.
struct URL {
  std::string absoluteString;
};

/// The header fields of a request, in the order of adding.
using HTTPHeaderFields = std::vector<std::pair<std::string, std::string>>;

/// What to ask of a server (NSMutableURLRequest). Timeouts and caching are the platform's defaults.
struct KX_EXPORT URLRequest {
  explicit URLRequest(URL requestURL) : url(std::move(requestURL)) {}

  /// `setValue:forHTTPHeaderField:`: the field has this one value.
  void setValue(const std::string &value, const std::string &forHTTPHeaderField);
  /// `addValue:forHTTPHeaderField:`: the value is appended to what the field has, after a comma.
  void addValue(const std::string &value, const std::string &forHTTPHeaderField);

  URL url;
  std::string HTTPMethod = "GET";
  HTTPHeaderFields allHTTPHeaderFields{};
};

/// Orders header names without regard to case, as HTTP does.
struct KX_EXPORT HTTPHeaderNameLess {
  bool operator()(const std::string &left, const std::string &right) const;
};

/// What a server answered (NSURLResponse). Its body is discarded as it arrives.
class KX_EXPORT URLResponse : public Object {};

/// An answer by HTTP (NSHTTPURLResponse).
class KX_EXPORT HTTPURLResponse : public URLResponse {
 public:
  using HeaderFields = std::map<std::string, std::string, HTTPHeaderNameLess>;

  HTTPURLResponse(long statusCode, HeaderFields allHeaderFields)
      : statusCode_(statusCode), allHeaderFields_(std::move(allHeaderFields)) {}

  long statusCode() const { return statusCode_; }
  /// The final answer's header; the values of a repeated field are joined by ", ".
  const HeaderFields &allHeaderFields() const { return allHeaderFields_; }

 private:
  long statusCode_;
  HeaderFields allHeaderFields_;
};

/// One request with a body (NSURLSessionUploadTask). May be used from any thread.
class KX_EXPORT URLSessionUploadTask : public Object {
 public:
  /// `resume`: starts the task and returns at once. Only the first call counts; a task that is never resumed
  /// never calls its completion handler.
  virtual void resume() = 0;
};

/// A group of requests (NSURLSession), made with the default configuration. May be used from any thread.
class KX_EXPORT URLSession : public Object {
 public:
  /// Receives the answer, or why there is none. Exactly one of the two is present. The body of the answer is
  /// not handed over: this library reads none.
  using CompletionHandler =
      std::function<void(const std::shared_ptr<URLResponse> &response, const std::optional<Error> &error)>;

  /// `uploadTaskWithRequest:fromData:completionHandler:`: a task, not yet started, that sends the request
  /// with that body (an empty one when `fromData` is absent). The handler is called once, on a queue of the
  /// session's choosing, never on the main thread; until then the task, started, keeps itself and it alive. A
  /// null pointer when the session has been told to finish.
  virtual std::shared_ptr<URLSessionUploadTask> uploadTaskWithRequest(
      const URLRequest &request, std::optional<Data> fromData, CompletionHandler completionHandler) = 0;

  /// `finishTasksAndInvalidate`: no more tasks are made; those that were started run to their end.
  virtual void finishTasksAndInvalidate() = 0;
};

/// How URLs and sessions are made. May be used from any thread; returns at once.
///
/// Every platform's sessions keep these defaults: TLS 1.2 or later, the server's certificate and name always
/// verified; redirects followed only to https, without "Authorization" to another host; 60 s without progress
/// end a request with an error. On iOS they are the system's own, App Transport Security, and as strict as
/// the host leaves that.
class KX_EXPORT URLSessionService {
 public:
  virtual ~URLSessionService() = default;

  /// `URLWithString:`: the URL of that text; absent when the text is none.
  virtual std::optional<URL> URLWithString(const std::string &text) = 0;

  /// `sessionWithConfiguration:` with `defaultSessionConfiguration`: a new session.
  virtual std::shared_ptr<URLSession> sessionWithDefaultConfiguration() = 0;
};

}  // namespace kx
