// The server around the collection service, over loopback: what clients ask of it, and what bad ones do to
// it.

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

void expectAnswer(const std::optional<Response> &response, unsigned status, const std::string &body = "") {
  ASSERT_TRUE(response);
  EXPECT_EQ(response->result_int(), status);
  EXPECT_THAT(response->body(), HasSubstr(body));
}

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

TEST_F(ServerTest, AClientThatDoesNotTrustTheAuthorityIsReported) {
  const CertificateAuthority other("Another authority");
  const Client client(port(), other.certificate().certificate);
  EXPECT_TRUE(client.error);
  expectFailure("no TLS handshake: tlsv1 alert unknown ca");
  expectThatItServes();
}

TEST_F(ServerTest, OldVersionsOfTLSAreRefused) {
  Client client(port(), authority.certificate().certificate, /*handshake=*/false);
  // The first bytes of a client that speaks nothing newer than TLS 1.1, with one cipher suite of its time.
  client.writePlain(std::string("\x16\x03\x01\x00\x2D\x01\x00\x00\x29\x03\x02", 11) + std::string(32, 'r') +
                    std::string("\x00\x00\x02\xC0\x09\x01\x00", 7));
  client.waitForEnd();
  expectFailure("no TLS handshake: unsupported protocol");
}

TEST_F(ServerTest, GarbageInsteadOfTLSCostsOneConnection) {
  for (const std::string &garbage :
       {std::string("GET / HTTP/1.1\r\nHost: h\r\n\r\n"), std::string(100000, '\0'),
        std::string(100000, '\xFF'), std::string("\x16\x03\x01\xFF\xFF", 5)}) {
    Client client(port(), authority.certificate().certificate, /*handshake=*/false);
    client.writePlain(garbage);
    client.vanish();
  }
  expectFailure("no TLS handshake: http request");
  EXPECT_TRUE(eventually([this] { return log.failures().size() == 4; }));
  expectThatItServes();
}

TEST_F(ServerTest, AClientThatNeverShakesHandsIsDropped) {
  limits.timeout = milliseconds(300);
  Client client(port(), authority.certificate().certificate, /*handshake=*/false);
  client.waitForEnd();
  expectFailure("no TLS handshake: it took too long");
}

TEST_F(ServerTest, GarbageInsteadOfHTTPIsRefused) {
  for (const char *garbage :
       {"garbage\r\n\r\n", "POST /api_v0_0_0/do_login\r\n\r\n", "POST / HTTP/2.0\r\n\r\n",
        "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: -1\r\n\r\n",
        "POST / HTTP/1.1\r\nHost: h\r\nno colon\r\n\r\n",
        "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n"}) {
    const auto client = connect();
    client->write(garbage);
    expectAnswer(client->read(), 400, "this is not HTTP/1.1: ");
    EXPECT_FALSE(client->read());
  }
  expectThatItServes();
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

TEST_F(ServerTest, ARequestThatStopsHalfWayIsDropped) {
  limits.timeout = milliseconds(500);
  const std::string whole = wireText(loginRequest());
  for (const std::size_t size : {std::size_t{10}, whole.find("\r\n\r\n"), whole.size() - 1}) {
    const auto client = connect();
    client->write(whole.substr(0, size));
    client->waitForEnd();
  }
  EXPECT_TRUE(eventually([this] { return log.failures().size() == 3; }));
  expectFailure("a request has not arrived whole: it took too long");
  EXPECT_TRUE(log.answers().empty());
}

TEST_F(ServerTest, ARequestThatItsClientEndsHalfWayIsToldOf) {
  const std::string whole = wireText(loginRequest());
  for (const std::size_t size : {std::size_t{10}, whole.find("\r\n\r\n"), whole.size() - 1}) {
    const auto client = connect();
    client->write(whole.substr(0, size));
    client->sayGoodbye();
  }
  EXPECT_TRUE(eventually([this] { return log.failures().size() == 3; }));
  expectFailure("a request has not arrived whole: partial message");
  EXPECT_TRUE(log.answers().empty());
}

TEST_F(ServerTest, AClientThatSendsTooSlowlyIsDroppedHoweverSteadyItIs) {
  limits.timeout = milliseconds(500);
  const auto client = connect();
  const auto start = steady_clock::now();
  while (!client->error && steady_clock::now() < start + std::chrono::seconds(30)) {
    client->write("x");
    std::this_thread::sleep_for(milliseconds(20));
  }
  EXPECT_TRUE(client->error);
  expectFailure("a request has not arrived whole: it took too long");
}

TEST_F(ServerTest, AClientThatSendsTooMuchTooFastIsDroppedAsWell) {
  limits.timeout = milliseconds(500);
  const auto client = connect();
  client->write("POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n");
  const std::string chunk = "1;" + std::string(60000, 'x') + "\r\nx\r\n";
  const auto start = steady_clock::now();
  while (!client->error && steady_clock::now() < start + std::chrono::seconds(30)) client->write(chunk);
  EXPECT_TRUE(client->error);
  expectFailure("a request has not arrived whole: it took too long");
}

TEST_F(ServerTest, AConnectionThatNothingIsAskedOnEndsWithoutAWord) {
  limits.timeout = milliseconds(300);
  const auto client = connect();
  expectAnswer(client->exchange(loginRequest()), 200);
  client->waitForEnd();
  expectThatItServes();
  EXPECT_TRUE(log.failures().empty());
}

TEST_F(ServerTest, AClientThatVanishesHalfWayCostsOneConnection) {
  const std::string whole = wireText(loginRequest());
  for (const std::size_t size : {std::size_t{10}, whole.find("\r\n\r\n"), whole.size() - 1}) {
    const auto client = connect();
    client->write(whole.substr(0, size));
    client->vanish();
  }
  EXPECT_TRUE(eventually([this] { return log.failures().size() == 3; }));
  expectThatItServes();
}

TEST_F(ServerTest, AClientThatVanishesBeforeItsAnswerCostsOneConnection) {
  settings.login.delay = milliseconds(200);
  const auto client = connect();
  client->write(wireText(loginRequest()));
  client->vanish();
  EXPECT_TRUE(eventually([this] { return log.answers().size() == 1; }));
  expectThatItServes();
}

TEST_F(ServerTest, ALongHeaderIsRefused) {
  limits.maximumHeaderSize = 1000;
  Request request = loginRequest();
  request.fields.emplace_back("X", std::string(1000, 'x'));
  expectAnswer(exchange(request), 431, "the header has more than 1000 bytes");
  expectThatItServes();
}

TEST_F(ServerTest, AnEndlessHeaderIsRefused) {
  const auto client = connect();
  client->write("POST / HTTP/1.1\r\nX: " + std::string(1 << 20, 'x'));
  expectAnswer(client->read(), 431);
}

TEST_F(ServerTest, ALongBodyIsRefusedWhileItIsStillBeingSent) {
  settings.maximumBodySize = 1000;
  limits.lingering = std::chrono::seconds(30);
  const auto client = connect();
  Request request = loginRequest();
  request.body = std::string(16 << 20, 'x');  // more than any buffer on the way holds
  client->write(wireText(request));
  EXPECT_FALSE(client->error) << client->error.message();
  expectAnswer(client->read(), 413, "the body has more than 1000 bytes");
}

TEST_F(ServerTest, AClientThatNeverStopsSendingIsCutOff) {
  settings.maximumBodySize = 1000;
  limits.lingering = milliseconds(300);
  const auto client = connect();
  Request request = loginRequest();
  request.body = std::string(2000, 'x');
  const std::string most(1 << 16, 'x');
  client->write(wireText(request));
  const auto start = steady_clock::now();
  while (!client->error && steady_clock::now() < start + std::chrono::seconds(30)) client->write(most);
  EXPECT_TRUE(client->error);
  expectThatItServes();
}

TEST_F(ServerTest, ALongBodyWithoutALengthIsRefused) {
  settings.maximumBodySize = 1000;
  const auto client = connect();
  std::string chunks = "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (int count = 0; count < 1000; ++count) chunks += "100\r\n" + std::string(256, 'x') + "\r\n";
  client->write(chunks);
  expectAnswer(client->read(), 413, "the body has more than 1000 bytes");
}

TEST_F(ServerTest, AnEndlessHeaderOfAChunkIsRefused) {
  const auto client = connect();
  client->write("POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n1;" +
                std::string(1 << 20, 'x'));
  expectAnswer(client->read(), 400);
}

TEST_F(ServerTest, AHugeLengthIsRefusedAtOnce) {
  const auto client = connect();
  client->write("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 18446744073709551615\r\n\r\n");
  expectAnswer(client->read(), 413);
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
