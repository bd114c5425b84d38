// NSURLSession over libcurl. A session has no delegate here, follows no redirect and keeps nothing.

#import <Foundation/Foundation.h>

#include <curl/curl.h>

#include <atomic>
#include <memory>

#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

using kx::standin::note;

namespace {

std::atomic<int> sessionsToFinish{0};

struct Answer {
  CURLcode result = CURLE_OK;
  long statusCode = 0;
  NSMutableDictionary<NSString *, NSString *> *headerFields = [NSMutableDictionary new];
  NSMutableData *body = [NSMutableData new];
};

size_t takeHeader(char *line, size_t size, size_t count, void *context) {
  NSString *const text = [[NSString alloc] initWithBytes:line
                                                  length:size * count
                                                encoding:NSUTF8StringEncoding];
  const NSRange colon = [text rangeOfString:@":"];
  if (colon.location != NSNotFound) {
    NSString *const value = [[text substringFromIndex:colon.location + 1]
        stringByTrimmingCharactersInSet:[NSCharacterSet whitespaceAndNewlineCharacterSet]];
    [static_cast<Answer *>(context)->headerFields setObject:value
                                                     forKey:[text substringToIndex:colon.location]];
  }
  return size * count;
}

size_t takeBody(char *bytes, size_t size, size_t count, void *context) {
  [static_cast<Answer *>(context)->body appendBytes:bytes length:size * count];
  return size * count;
}

void perform(NSURLRequest *request, NSData *body, Answer &answer) {
  const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(curl_easy_init(), curl_easy_cleanup);
  CURL *const curl = handle.get();
  curl_slist *lines = nullptr;
  for (NSString *name in request.allHTTPHeaderFields) {
    NSString *const line =
        [NSString stringWithFormat:@"%@: %@", name, [request valueForHTTPHeaderField:name]];
    lines = curl_slist_append(lines, line.UTF8String);
  }
  const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> header(lines, curl_slist_free_all);
  curl_easy_setopt(curl, CURLOPT_URL, request.URL.absoluteString.UTF8String);
  curl_easy_setopt(curl, CURLOPT_POST, 1L);
  curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.HTTPMethod.UTF8String);
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, header.get());
  curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.length));
  curl_easy_setopt(curl, CURLOPT_COPYPOSTFIELDS, body != nil ? body.bytes : "");
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, takeHeader);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &answer);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, takeBody);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, 60L);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  const std::string &authority = kx::standin::network().certificateAuthorityFile;
  if (!authority.empty()) curl_easy_setopt(curl, CURLOPT_CAINFO, authority.c_str());
  answer.result = curl_easy_perform(curl);
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &answer.statusCode);
}

using Completion = void (^)(NSData *, NSURLResponse *, NSError *);

void performAndComplete(NSURLRequest *request, NSData *body, Completion completion) {
  NSData *data = nil;
  NSURLResponse *response = nil;
  NSError *error = nil;
  @autoreleasepool {
    const kx::standin::Network &network = kx::standin::network();
    if (network.response != nil || network.error != nil) {
      response = network.response;
      error = network.error;
    } else {
      Answer answer;
      perform(request, body, answer);
      if (answer.result == CURLE_OK) {
        data = answer.body;
        response = [[NSHTTPURLResponse alloc] initWithURL:request.URL
                                               statusCode:answer.statusCode
                                              HTTPVersion:@"HTTP/1.1"
                                             headerFields:answer.headerFields];
      } else {
        NSDictionary *const information = @{NSLocalizedDescriptionKey : @(curl_easy_strerror(answer.result))};
        error = [NSError errorWithDomain:@"NSURLErrorDomain" code:answer.result userInfo:information];
      }
    }
  }
  completion(data, response, error);  // without an autorelease pool: a library brings its own
}

}  // namespace

@interface NSURLSessionTask () {
 @public
  NSURLRequest *_request;
  NSData *_body;
  Completion _completion;
}
@end

@implementation NSURLSessionConfiguration

+ (NSURLSessionConfiguration *)defaultSessionConfiguration {
  return [NSURLSessionConfiguration new];
}

@end

@implementation NSURLSessionTask

- (void)resume {
  note(__func__);
  NSURLRequest *const request = _request;
  NSData *const body = _body;
  Completion const completion = _completion;
  _completion = nil;
  if (completion == nil) return;
  kx::standin::runOnThreadOfItsOwn(
      [request, body, completion] { performAndComplete(request, body, completion); });
}

@end

@implementation NSURLSessionDataTask
@end

@implementation NSURLSessionUploadTask
@end

@implementation NSURLSession {
  std::atomic<bool> _isToFinish;
}

+ (NSURLSession *)sessionWithConfiguration:(NSURLSessionConfiguration *)configuration {
  note(__func__);
  ++sessionsToFinish;
  return [NSURLSession new];
}

- (NSURLSessionUploadTask *)uploadTaskWithRequest:(NSURLRequest *)request
                                         fromData:(NSData *)bodyData
                                completionHandler:(Completion)completionHandler {
  note(__func__);
  if (_isToFinish) {
    [NSException raise:NSGenericException format:@"Task created in a session that has been invalidated"];
  }
  NSURLSessionUploadTask *const task = [NSURLSessionUploadTask new];
  task->_request = [request copy];
  task->_body = [bodyData copy];
  task->_completion = [completionHandler copy];
  return task;
}

- (void)finishTasksAndInvalidate {
  note(__func__);
  if (!_isToFinish.exchange(true)) --sessionsToFinish;
}

@end

namespace kx::standin {

Network &network() {
  static auto *const network = new Network;
  return *network;
}

int openSessions() {
  return sessionsToFinish;
}

}  // namespace kx::standin
