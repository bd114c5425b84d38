// The server around the collection service, over loopback: what clients ask of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/tools/collector/Requests.h"
#include "tests/tools/collector/ServerFixture.h"
#include "tools/collector/Server.h"

namespace kx::collector {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::HasSubstr;

/// The server's end of the connection to that port of its own; -1 if there is none.
int acceptedSocket(std::uint16_t port) {
  for (int socket = 0; socket < 1024; ++socket) {
    sockaddr_in own{};
    sockaddr_in other{};
    socklen_t size = sizeof own;
    if (getsockname(socket, reinterpret_cast<sockaddr *>(&own), &size) != 0 || ntohs(own.sin_port) != port)
      continue;
    if (getpeername(socket, reinterpret_cast<sockaddr *>(&other), &size) == 0) return socket;
  }
  return -1;
}

TEST_F(ServerTest, ALoginGetsATokenAndAMessageWithItIsAccepted) {
  const auto login = exchange(loginRequest());
  expectAnswer(login, 200);
  EXPECT_EQ((*login)["set-authorization"].size(), 32u);
  EXPECT_EQ(login->body(), "");
  const std::string token((*login)["set-authorization"].data(), 32);
  expectAnswer(exchange(messageRequest(token)), 200);
  ASSERT_EQ(log.answers().size(), 2u);
  EXPECT_EQ(log.answers()[0].document, loginDocument());
  EXPECT_EQ(log.answers()[1].wholeDocument(), messageDocument());
}

TEST_F(ServerTest, ARefusalSaysWhyInItsBody) {
  expectAnswer(exchange(messageRequest("unknown")), 403, "the access token is unknown or has expired\n");
  const auto response = exchange(messageRequest("unknown"));
  EXPECT_EQ((*response)["Content-Type"], "text/plain; charset=utf-8");
}

TEST_F(ServerTest, AWrongMethodIsToldTheRightOne) {
  Request request = loginRequest();
  request.method = "PUT";
  const auto response = exchange(request);
  expectAnswer(response, 405, "the method must be POST");
  EXPECT_EQ((*response)["Allow"], "POST");
}

TEST_F(ServerTest, AConnectionServesManyRequests) {
  const auto client = connect();
  const std::string token = logIn();
  expectAnswer(client->exchange(loginRequest()), 200);
  expectAnswer(client->exchange(messageRequest("unknown")), 403);
  expectAnswer(client->exchange(messageRequest(token)), 200);
}

TEST_F(ServerTest, AnAnswerWaitsForNoAcknowledgement) {
  const auto client = connect();
  ASSERT_TRUE(client->exchange(loginRequest()));
  int isAtOnce = 0;
  socklen_t size = sizeof isAtOnce;
  ASSERT_EQ(getsockopt(acceptedSocket(port()), IPPROTO_TCP, TCP_NODELAY, &isAtOnce, &size), 0);
  EXPECT_NE(isAtOnce, 0);
}

TEST_F(ServerTest, RequestsThatArriveTogetherAreAnsweredInTurn) {
  const auto client = connect();
  client->write(wireText(loginRequest()) + wireText(messageRequest("unknown")));
  expectAnswer(client->read(), 200);
  expectAnswer(client->read(), 403);
}

TEST_F(ServerTest, ClosesTheConnectionWhenTheClientWantsIt) {
  const auto client = connect();
  Request request = loginRequest();
  request.fields.emplace_back("Connection", "close");
  expectAnswer(client->exchange(request), 200);
  EXPECT_FALSE(client->read());
}

TEST_F(ServerTest, AClientOfHTTP10IsNotLeftWaitingForTheEnd) {
  const auto client = connect();
  const Request request = loginRequest();
  std::string text = wireText(request);
  text.replace(text.find("HTTP/1.1"), 8, "HTTP/1.0");
  const auto start = steady_clock::now();
  client->write(text);
  const auto response = client->read();
  expectAnswer(response, 200);
  EXPECT_EQ((*response)["Connection"], "close");
  EXPECT_FALSE(client->read());
  EXPECT_LT(steady_clock::now() - start, limits.timeout / 2);
}

TEST_F(ServerTest, AClientOfHTTP10ThatKeepsItsConnectionIsToldSo) {
  const auto client = connect();
  Request request = loginRequest();
  request.fields.emplace_back("Connection", "keep-alive");
  std::string text = wireText(request);
  text.replace(text.find("HTTP/1.1"), 8, "HTTP/1.0");
  for (int times = 0; times < 2; ++times) {
    client->write(text);
    const auto response = client->read();
    expectAnswer(response, 200);
    EXPECT_EQ((*response)["Connection"], "keep-alive");
  }
}

TEST_F(ServerTest, ARequestIsAnsweredWhenItIsKept) {
  log.hold();
  const auto first = connect();
  const auto second = connect();
  first->write(wireText(loginRequest()));
  second->write(wireText(messageRequest("unknown")));
  // Nobody waits for anybody else.
  EXPECT_TRUE(eventually([this] { return log.held() == 2; }));
  bool isReleased = false;
  std::thread later([this, &isReleased] {
    std::this_thread::sleep_for(milliseconds(50));
    isReleased = true;
    log.release();
  });
  expectAnswer(first->read(), 200);
  EXPECT_TRUE(isReleased);
  expectAnswer(second->read(), 403);
  later.join();
}

TEST_F(ServerTest, ARequestThatCannotBeKeptIsNotAnswered) {
  log.hold();
  const auto client = connect();
  client->write(wireText(loginRequest()));
  EXPECT_TRUE(eventually([this] { return log.held() == 1; }));
  log.release({"the disk is full"});
  EXPECT_FALSE(client->read());
  expectFailure("the disk is full");
}

TEST_F(ServerTest, AnAnswerToAHeadRequestHasNoBody) {
  const auto client = connect();
  Request request = loginRequest();
  request.method = "HEAD";
  client->write(wireText(request) + wireText(loginRequest()));
  const auto response = client->read();
  expectAnswer(response, 405);
  EXPECT_EQ(response->body(), "");
  expectAnswer(client->read(), 200);
}

TEST_F(ServerTest, FiftyClientsAreServedSideBySide) {
  constexpr int count = 50;
  port();
  std::atomic<int> served{0};
  std::vector<std::thread> clients;
  for (int number = 0; number < count; ++number) {
    clients.emplace_back([this, &served] {
      const auto response = exchange(messageRequest(logIn()));
      if (response && response->result_int() == 200) ++served;
    });
  }
  for (std::thread &client : clients) client.join();
  EXPECT_EQ(served, count);
  EXPECT_EQ(log.answers().size(), 2u * count);
}

TEST_F(ServerTest, AnEndpointAnswersWithTheStatusThatItIsToldTo) {
  settings.login.status = 503;
  settings.login.statusCount = 1;
  settings.message.status = 204;
  expectAnswer(exchange(loginRequest()), 503, "told to answer so");
  const std::string token = logIn();
  EXPECT_EQ(token.size(), 32u);
  const auto client = connect();
  expectAnswer(client->exchange(messageRequest(token)), 204);
  expectAnswer(client->exchange(messageRequest(token)), 204);
}

TEST_F(ServerTest, AnAnswerIsHeldBackWhileOthersAreServed) {
  settings.message.delay = milliseconds(500);
  const std::string token = logIn();
  const auto start = steady_clock::now();
  const auto client = connect();
  client->write(wireText(messageRequest(token)));
  expectAnswer(exchange(loginRequest()), 200);
  expectAnswer(client->read(), 200);
  EXPECT_GE(steady_clock::now() - start, milliseconds(500));
}

TEST_F(ServerTest, AnAnswerMayBeHeldBackLongerThanARequestMayTake) {
  limits.timeout = milliseconds(300);
  settings.login.delay = milliseconds(900);
  expectAnswer(exchange(loginRequest()), 200);
}

TEST_F(ServerTest, AnEndpointDropsItsConnections) {
  settings.message.drop = true;
  const auto client = connect();
  EXPECT_FALSE(client->exchange(messageRequest(logIn())));
  EXPECT_TRUE(client->error);
  expectAnswer(exchange(loginRequest()), 200);
}

TEST_F(ServerTest, ABrowserFetchesTheCertificate) {
  settings.download.emplace(authority.certificate().certificate);
  const auto fetched = exchange({"GET", "/ca.mobileconfig", {{"Host", "h"}}, ""});
  expectAnswer(fetched, 200, "com.apple.security.root");
  EXPECT_EQ((*fetched)["Content-Type"], "application/x-apple-aspen-config");
  EXPECT_EQ((*fetched)["X-Content-Type-Options"], "nosniff");
  EXPECT_THAT(std::string((*fetched)["Content-Security-Policy"]), HasSubstr("default-src 'none'"));
  expectAnswer(exchange({"GET", "/ca", {{"Host", "h"}}, ""}), 200, "/ca.pem");
  expectAnswer(exchange({"POST", "/ca", {{"Host", "h"}}, ""}), 404);
  expectAnswer(exchange({"GET", "/other", {{"Host", "h"}}, ""}), 404);
  expectThatItServes();
}

TEST_F(ServerTest, ACertificateOfOnesOwnIsNotForFetching) {
  expectAnswer(exchange({"GET", "/ca.pem", {{"Host", "h"}}, ""}), 404);
}

TEST_F(ServerTest, AnExpiredTokenIsRefused) {
  settings.tokenLifetime = milliseconds(1);
  const std::string token = logIn();
  std::this_thread::sleep_for(milliseconds(2));
  expectAnswer(exchange(messageRequest(token)), 403, "the access token is unknown or has expired");
}

TEST(ServerSetupTest, APortThatIsTakenIsAnError) {
  boost::asio::io_context io;
  CollectionService service{CollectionServiceSettings()};
  RecordingEventLog log;
  const CertificateAuthority authority("Test authority");
  auto tls = tlsContext(authority.certificate().certificate, authority.certificate().privateKey);
  const auto loopback = boost::asio::ip::address_v4::loopback();
  const Server first(io, tls, service, log, {loopback, 0});
  EXPECT_THROW(Server(io, tls, service, log, {loopback, first.port()}), boost::system::system_error);
}

TEST(ServerSetupTest, ACertificateAndAKeyThatDoNotBelongTogetherAreAnError) {
  const CertificateAuthority one("One");
  const CertificateAuthority other("Other");
  EXPECT_THROW(tlsContext(one.certificate().certificate, other.certificate().privateKey),
               boost::system::system_error);
  EXPECT_THROW(tlsContext("text", one.certificate().privateKey), boost::system::system_error);
  EXPECT_THROW(tlsContext(one.certificate().certificate, ""), boost::system::system_error);
}

TEST_F(ServerTest, AnswersWithTheStatusThatItIsToldWhenARequestCannotBeKept) {
  const auto client = connect();
  log.hold();
  client->write(wireText(loginRequest()));
  EXPECT_TRUE(eventually([this] { return log.held() == 1; }));
  log.release({"the stream is away", 503});
  const auto response = client->read();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->result_int(), 503u);
  EXPECT_EQ(response->body(), "the stream is away\n");
  EXPECT_TRUE(response->keep_alive());
}

}  // namespace
}  // namespace kx::collector
