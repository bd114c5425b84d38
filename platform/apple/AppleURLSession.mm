#include "platform/apple/AppleURLSession.h"

#import <Foundation/Foundation.h>

#include <atomic>
#include <utility>

#include "platform/apple/AppleCallbackBoundary.h"
#include "platform/apple/AppleText.h"

namespace kx {

namespace {

HTTPURLResponse::HeaderFields headerFieldsOf(NSDictionary *fields) {
  HTTPURLResponse::HeaderFields headerFields;
  for (id name in fields) {
    id const value = [fields objectForKey:name];
    if (![name isKindOfClass:[NSString class]] || ![value isKindOfClass:[NSString class]]) continue;
    auto nameText = textOf(static_cast<NSString *>(name));
    auto valueText = textOf(static_cast<NSString *>(value));
    if (nameText && valueText) headerFields.emplace(*std::move(nameText), *std::move(valueText));
  }
  return headerFields;
}

std::shared_ptr<URLResponse> responseOf(NSURLResponse *response) {
  if (![response isKindOfClass:[NSHTTPURLResponse class]]) return std::make_shared<URLResponse>();
  NSHTTPURLResponse *const answer = static_cast<NSHTTPURLResponse *>(response);
  return std::make_shared<HTTPURLResponse>(static_cast<long>(answer.statusCode),
                                           headerFieldsOf(answer.allHeaderFields));
}

/// The user information of an NSError is left out: it may hold the whole URL.
Error errorOf(NSError *error) {
  return {textOf(error.domain).value_or(std::string()), static_cast<long>(error.code),
          textOf(error.localizedDescription).value_or(std::string())};
}

NSURLRequest *requestOf(const URLRequest &request) {
  NSString *const text = stringOf(request.url.absoluteString);
  NSURL *const url = text == nil ? nil : [NSURL URLWithString:text];
  NSString *const method = stringOf(request.HTTPMethod);
  if (url == nil || method == nil) return nil;
  NSMutableURLRequest *const systemRequest = [NSMutableURLRequest requestWithURL:url];
  for (const auto &[name, value] : request.allHTTPHeaderFields) {
    NSString *const field = stringOf(name);
    NSString *const content = stringOf(value);
    if (field != nil && content != nil) [systemRequest setValue:content forHTTPHeaderField:field];
  }
  systemRequest.HTTPMethod = method;
  return systemRequest;
}

class AppleUploadTask : public URLSessionUploadTask {
 public:
  explicit AppleUploadTask(NSURLSessionUploadTask *task) : task_(task) {}

  void resume() override { [task_ resume]; }

 private:
  NSURLSessionUploadTask *const task_;
};

class AppleURLSession : public URLSession {
 public:
  explicit AppleURLSession(NSURLSession *session) : session_(session) {}

  std::shared_ptr<URLSessionUploadTask> uploadTaskWithRequest(const URLRequest &request,
                                                              std::optional<Data> fromData,
                                                              CompletionHandler completionHandler) override {
    if (invalidated_) return nullptr;
    NSURLSessionUploadTask *const task =
        systemUploadTask(session_, request, fromData, ^(NSData *, NSURLResponse *response, NSError *error) {
          runAtBoundary([&] {
            if (error != nil) {
              completionHandler(nullptr, errorOf(error));
            } else {
              completionHandler(responseOf(response), std::nullopt);
            }
          });
        });
    return task == nil ? nullptr : std::make_shared<AppleUploadTask>(task);
  }

  void finishTasksAndInvalidate() override {
    invalidated_ = true;
    [session_ finishTasksAndInvalidate];
  }

 private:
  NSURLSession *const session_;
  std::atomic<bool> invalidated_{false};  ///< an NSURLSession raises when it is asked for a task after that
};

}  // namespace

NSURLSessionUploadTask *systemUploadTask(NSURLSession *session, const URLRequest &request,
                                         const std::optional<Data> &body,
                                         UploadCompletionHandler completionHandler) {
  NSURLRequest *const systemRequest = requestOf(request);
  if (systemRequest == nil) return nil;
  NSData *const data = body ? [NSData dataWithBytes:body->data() length:body->size()] : nil;
  return [session uploadTaskWithRequest:systemRequest fromData:data completionHandler:completionHandler];
}

std::optional<URL> AppleURLSessionService::URLWithString(const std::string &text) {
  NSString *const string = stringOf(text);
  NSURL *const url = string == nil ? nil : [NSURL URLWithString:string];
  auto absoluteString = textOf(url.absoluteString);
  if (!absoluteString) return std::nullopt;
  return URL{*std::move(absoluteString)};
}

std::shared_ptr<URLSession> AppleURLSessionService::sessionWithDefaultConfiguration() {
  return std::make_shared<AppleURLSession>(
      [NSURLSession sessionWithConfiguration:[NSURLSessionConfiguration defaultSessionConfiguration]]);
}

}  // namespace kx
