// Requests, to a collection service on this machine.

#import <Foundation/Foundation.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>

#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/URLSession.h"
#include "tests/platform/apple/harness/Collector.h"
#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx {
namespace {

struct Outcome {
  std::shared_ptr<URLResponse> response;
  std::optional<Error> error;

  long statusCode() const {
    const auto *const answer = dynamic_cast<const HTTPURLResponse *>(response.get());
    return answer == nullptr ? 0 : answer->statusCode();
  }
};

URLSessionService &service() {
  return Platform::current().urlSessions();
}

URLRequest requestTo(const std::string &hostname, const std::string &path) {
  URLRequest request(*service().URLWithString("https://" + hostname + path));
  request.HTTPMethod = "POST";
  request.setValue("application/json", "Content-Type");
  return request;
}

/// Makes the request and waits for what comes of it; runs no run loop.
Outcome send(const URLRequest &request, const std::optional<Data> &body) {
  const auto session = service().sessionWithDefaultConfiguration();
  std::promise<Outcome> outcome;
  const auto task = session->uploadTaskWithRequest(
      request, body,
      [&outcome](const std::shared_ptr<URLResponse> &response, const std::optional<Error> &error) {
        EXPECT_FALSE([NSThread isMainThread]);
        outcome.set_value({response, error});
      });
  task->resume();
  task->resume();
  session->finishTasksAndInvalidate();
  return outcome.get_future().get();
}

TEST(AppleURLSession, BringsTheAnswer) {
  const Collector collector;
  const Outcome outcome = send(requestTo(collector.hostname(), "/nowhere"), Data{'{', '}'});
  EXPECT_EQ(outcome.statusCode(), 404);
  EXPECT_EQ(outcome.error, std::nullopt);
  const auto &answer = dynamic_cast<const HTTPURLResponse &>(*outcome.response);
  EXPECT_EQ(answer.allHeaderFields().count("CONTENT-LENGTH"), 1u);
}

TEST(AppleURLSession, SendsAnEmptyBodyWhenThereIsNone) {
  const Collector collector;
  const Outcome outcome = send(requestTo(collector.hostname(), "/api_v0_0_0/do_login"), std::nullopt);
  EXPECT_GE(outcome.statusCode(), 400);
  // The collector's line about it may come later than its answer.
  EXPECT_TRUE(eventually([&collector] { return collector.requests("login").size() == 1; }))
      << collector.transcript();
}

TEST(AppleURLSession, BringsAnErrorWhenTheServerIsNotTrusted) {
  const Collector collector;
  standin::network().certificateAuthorityFile.clear();
  const Outcome outcome = send(requestTo(collector.hostname(), "/nowhere"), std::nullopt);
  EXPECT_EQ(outcome.response, nullptr);
  ASSERT_TRUE(outcome.error);
  EXPECT_EQ(outcome.error->domain, "NSURLErrorDomain");
  EXPECT_NE(outcome.error->code, 0);
  EXPECT_NE(outcome.error->localizedDescription, "");
}

TEST(AppleURLSession, BringsAnErrorWhenNobodyListens) {
  const Outcome outcome = send(requestTo("localhost:1", "/nowhere"), std::nullopt);
  EXPECT_EQ(outcome.response, nullptr);
  EXPECT_TRUE(outcome.error);
}

TEST(AppleURLSession, BringsTheErrorAloneWhenThereIsAResponseBesideIt) {
  standin::network().response =
      [[NSHTTPURLResponse alloc] initWithURL:[NSURL URLWithString:@"https://localhost/"]
                                  statusCode:200
                                 HTTPVersion:@"HTTP/1.1"
                                headerFields:@{}];
  standin::network().error =
      [NSError errorWithDomain:@"KXTestDomain"
                          code:-1005
                      userInfo:@{NSLocalizedDescriptionKey : @"The connection was lost."}];
  const Outcome outcome = send(requestTo("localhost:1", "/nowhere"), std::nullopt);
  EXPECT_EQ(outcome.response, nullptr);
  ASSERT_TRUE(outcome.error);
  EXPECT_EQ(outcome.error->domain, "KXTestDomain");
  EXPECT_EQ(outcome.error->code, -1005);
  EXPECT_EQ(outcome.error->localizedDescription, "The connection was lost.");
}

TEST(AppleURLSession, BringsAResponseThatIsNotHTTPAsOne) {
  standin::network().response = [[NSURLResponse alloc] initWithURL:[NSURL URLWithString:@"file:///"]
                                                          MIMEType:@"text/plain"
                                             expectedContentLength:0
                                                  textEncodingName:nil];
  const Outcome outcome = send(requestTo("localhost:1", "/nowhere"), std::nullopt);
  EXPECT_EQ(outcome.error, std::nullopt);
  ASSERT_NE(outcome.response, nullptr);
  EXPECT_EQ(std::dynamic_pointer_cast<HTTPURLResponse>(outcome.response), nullptr);
}

TEST(AppleURLSession, SendsMethodHeaderAndBody) {
  const Collector collector;
  URLRequest request = requestTo(collector.hostname(), "/api_v0_0_0/do_login");
  request.setValue("\xFF", "X-Value-That-Is-No-Text");
  request.setValue("name that is no text", "X-\xFF");
  const auto answer = send(request, Data{'{', '}'});
  // A login that lacks everything, but has reached its place as what it is.
  EXPECT_TRUE(eventually([&collector] { return collector.requests("login").size() == 1; }))
      << collector.transcript();
  const auto seen = collector.requests("login").at(0);
  EXPECT_EQ(seen["status"], answer.statusCode());
  EXPECT_EQ(seen["method"], "POST");
  // The header's other field is what the collector looks at first.
  EXPECT_EQ(seen["reason"], "the header Content-Encoding is missing, it must be gzip");
}

TEST(AppleURLSession, MakesNoTaskForARequestThatIsNone) {
  const auto session = service().sessionWithDefaultConfiguration();
  const auto nobody = [](const auto &, const auto &) { FAIL(); };
  URLRequest request = requestTo("localhost:1", "/");
  request.HTTPMethod = "\xFF";
  EXPECT_EQ(session->uploadTaskWithRequest(request, std::nullopt, nobody), nullptr);
  EXPECT_EQ(session->uploadTaskWithRequest(URLRequest(URL{"\xFF"}), std::nullopt, nobody), nullptr);
  session->finishTasksAndInvalidate();
}

TEST(AppleURLSession, MakesNoTaskOnceItIsToFinish) {
  const auto session = service().sessionWithDefaultConfiguration();
  EXPECT_EQ(standin::openSessions(), 1);
  session->finishTasksAndInvalidate();
  EXPECT_EQ(standin::openSessions(), 0);
  EXPECT_EQ(session->uploadTaskWithRequest(requestTo("localhost:1", "/"), std::nullopt,
                                           [](const auto &, const auto &) { FAIL(); }),
            nullptr);
}

TEST(AppleURLSession, ATaskThatIsNotResumedCallsNobody) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> weak = held;
  @autoreleasepool {
    const auto session = service().sessionWithDefaultConfiguration();
    const auto task = session->uploadTaskWithRequest(requestTo("localhost:1", "/"), std::nullopt,
                                                     [held](const auto &, const auto &) { FAIL() << *held; });
    EXPECT_NE(task, nullptr);
    held.reset();
    session->finishTasksAndInvalidate();
  }
  EXPECT_TRUE(weak.expired());
}

TEST(AppleURLSession, EndsWhatACompletionHandlerThrows) {
  const auto session = service().sessionWithDefaultConfiguration();
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> weak = held;
  session
      ->uploadTaskWithRequest(requestTo("localhost:1", "/"), std::nullopt,
                              [held](const auto &, const auto &) { throw *held; })
      ->resume();
  held.reset();
  session->finishTasksAndInvalidate();
  EXPECT_TRUE(standin::runMainLoopUntil([&weak] { return weak.expired(); }));
}

TEST(AppleURLSession, AcceptsTheURLsOfTheService) {
  const auto url = service().URLWithString("https://svc.example:8443/api_v0_0_0/post_msg");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->absoluteString, "https://svc.example:8443/api_v0_0_0/post_msg");
  EXPECT_FALSE(service().URLWithString("https://\xFF/"));
}

}  // namespace
}  // namespace kx
