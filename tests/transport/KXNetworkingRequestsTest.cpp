#include <KXPublisher/KXConstants.h>

#include <cmath>
#include <string>

#include "KXPublisher/transport/KXNetworking.h"
#include "tests/support/SimulatedTest.h"

namespace kx {
namespace {

class KXNetworkingRequestsTest : public SimulatedTest {
 protected:
  std::shared_ptr<URLSession> session = device.urlSessionService.sessionWithDefaultConfiguration();

  static std::string url(const std::optional<std::string> &path, const std::optional<std::string> &host) {
    const auto made = KXNetworking::urlForApiPath(path, host);
    return made ? made->absoluteString : "(none)";
  }
  static Data bytes(const std::string &text) { return Data(text.begin(), text.end()); }
  const Dictionary params{
      {"iss", "svc:8443/svc:8443"}, {"aud", Array{"svc:8443/svc:8443"}}, {"more", Array{"svc:8443"}}};
};

TEST_F(KXNetworkingRequestsTest, MakesURLsOfHostAndPath) {
  EXPECT_EQ(url("api_v0_0_0/do_login", "svc"), "https://svc/api_v0_0_0/do_login");
  EXPECT_EQ(url("/x", "svc"), "https://svc/x");
  EXPECT_EQ(url("", "svc"), "https://svc/");
  EXPECT_EQ(url("//x", "svc"), "https://svc//x");
  EXPECT_EQ(url("/x", "svc:8443"), "https://svc:8443/x");
  EXPECT_EQ(url("/%41?q=1#f", "svc"), "https://svc/%41?q=1#f");
}

TEST_F(KXNetworkingRequestsTest, MakesNoURLWithoutAPathOrOfTextThatIsNone) {
  EXPECT_EQ(url(std::nullopt, "svc"), "(none)");
  EXPECT_EQ(url("/x", "no host"), "(none)");
  EXPECT_EQ(url("/x", ""), "(none)");
}

TEST_F(KXNetworkingRequestsTest, FormatsAnAbsentHostNameAsTheTextForANullObject) {
  EXPECT_EQ(url("/x", std::nullopt), "https://(null)/x");
}

TEST_F(KXNetworkingRequestsTest, MakesCompactJSONWithPlainSlashes) {
  EXPECT_EQ(KXNetworking::jsonForObject(Array{Dictionary{{"url", "https://host/path"}, {"n", 1}}}),
            "[{\"url\":\"https://host/path\",\"n\":1}]");
  EXPECT_EQ(KXNetworking::jsonForObject(Array{std::nan("")}), std::nullopt);
  EXPECT_EQ(KXNetworking::jsonForObject("text"), std::nullopt);
}

TEST_F(KXNetworkingRequestsTest, BuildsALoginRequest) {
  const auto task = KXNetworking::apiUploadTaskForPath("/login", "svc:8443", params, session,
                                                       [](const auto &, const auto &) {});
  ASSERT_NE(task, nullptr);
  EXPECT_TRUE(device.service.requests.empty());  // not yet started
  task->resume();
  ASSERT_EQ(device.service.requests.size(), 1u);
  const SimulatedRequest &request = device.service.requests[0];
  EXPECT_EQ(request.url, "https://svc:8443/login");
  EXPECT_EQ(request.HTTPMethod, "POST");
  EXPECT_EQ(request.headerFields,
            (HTTPHeaderFields{{"Content-Type", "application/json"}, {"Content-Encoding", "gzip"}}));
  EXPECT_EQ(request.text(),
            "{\"iss\":\"svc:8443/svc:8443\",\"aud\":[\"svc:8443/svc:8443\"],\"more\":[\"svc:8443\"]}");
}

TEST_F(KXNetworkingRequestsTest, BuildsNoLoginRequestWithoutItsParts) {
  const auto build = [](const std::optional<std::string> &path, const std::optional<std::string> &host,
                        const std::optional<Dictionary> &document, const std::shared_ptr<URLSession> &with) {
    return KXNetworking::apiUploadTaskForPath(path, host, document, with, [](const auto &, const auto &) {});
  };
  EXPECT_EQ(build(std::nullopt, "svc", params, session), nullptr);
  EXPECT_EQ(build("/login", "svc", std::nullopt, session), nullptr);
  EXPECT_EQ(build("/login", "svc", params, nullptr), nullptr);
  EXPECT_EQ(build("/login", "no host", params, session), nullptr);
  EXPECT_EQ(build("/login", "svc", Dictionary{{"key", "\xff"}}, session), nullptr);
  session->finishTasksAndInvalidate();
  EXPECT_EQ(build("/login", "svc", params, session), nullptr);
}

TEST_F(KXNetworkingRequestsTest, BuildsAMessageRequest) {
  const auto task =
      KXNetworking::feedUploadTaskForData(bytes("[{\"key\":\"a value that compresses, that compresses\"}]"),
                                          "svc", "to ken==", session, [](const auto &, const auto &) {});
  ASSERT_NE(task, nullptr);
  task->resume();
  ASSERT_EQ(device.service.requests.size(), 1u);
  const SimulatedRequest &request = device.service.requests[0];
  EXPECT_EQ(request.url, "https://svc/api_v0_0_0/post_msg");
  EXPECT_EQ(request.HTTPMethod, "POST");
  EXPECT_EQ(request.headerFields, (HTTPHeaderFields{{"Content-Type", "application/json"},
                                                    {"Content-Encoding", "gzip"},
                                                    {"Authorization", "Bearer to ken=="}}));
  EXPECT_EQ(request.text(), "[{\"key\":\"a value that compresses, that compresses\"}]");
}

TEST_F(KXNetworkingRequestsTest, BuildsNoMessageRequestWithoutItsParts) {
  const auto build = [](const std::optional<Data> &data, const std::optional<std::string> &host,
                        const std::optional<std::string> &token, const std::shared_ptr<URLSession> &with) {
    return KXNetworking::feedUploadTaskForData(data, host, token, with, [](const auto &, const auto &) {});
  };
  EXPECT_EQ(build(std::nullopt, "svc", "token", session), nullptr);
  EXPECT_EQ(build(bytes("[]"), "svc", std::nullopt, session), nullptr);
  EXPECT_EQ(build(bytes("[]"), "svc", "token", nullptr), nullptr);
  EXPECT_EQ(build(bytes("[]"), "no host", "token", session), nullptr);
}

TEST_F(KXNetworkingRequestsTest, ReadsTheServicesPathsAtEachUse) {
  kxPublisherFeedPathLogData = "elsewhere";
  kxPublisherApiPathGetToken = "/other_login";
  KXNetworking::feedUploadTaskForData(bytes("[]"), "svc", "token", session, [](const auto &, const auto &) {
  })->resume();
  const auto networking = KXNetworking::initWithApiToken("token", "svc");
  device.runReadyTasks();
  ASSERT_EQ(device.service.requests.size(), 2u);
  EXPECT_EQ(device.service.requests[0].url, "https://svc/elsewhere");
  EXPECT_EQ(device.service.requests[1].url, "https://svc/other_login");
}

TEST_F(KXNetworkingRequestsTest, BuildsNoRequestToAPathThatIsCleared) {
  kxPublisherFeedPathLogData = nullptr;
  kxPublisherApiPathGetToken = nullptr;
  EXPECT_EQ(KXNetworking::feedUploadTaskForData(bytes("[]"), "svc", "token", session,
                                                [](const auto &, const auto &) {}),
            nullptr);
  KXNetworking::initWithApiToken("token", "svc");
  device.advance(86400);
  EXPECT_TRUE(device.service.requests.empty());
}

TEST_F(KXNetworkingRequestsTest, SendsNoBodyWhenItCannotBeCompressed) {
  KXNetworking::feedUploadTaskForData(bytes("[]"), "svc", "token", session, [](const auto &, const auto &) {
  })->resume();
  ASSERT_EQ(device.service.requests.size(), 1u);
  EXPECT_EQ(device.service.requests[0].body, std::nullopt);
  EXPECT_EQ(device.consoleService.lines.size(), 1u);
}

}  // namespace
}  // namespace kx
