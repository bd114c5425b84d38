// What bad clients do to the server: each costs its own connection, and nothing else.

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/support/ChildProcess.h"
#include "tests/tools/collector/Requests.h"
#include "tests/tools/collector/ServerFixture.h"
#include "tools/collector/Server.h"

namespace kx::collector {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

using ServerBadClientTest = ServerTest;

TEST_F(ServerBadClientTest, AClientThatDoesNotTrustTheAuthorityIsReported) {
  const CertificateAuthority other("Another authority");
  const Client client(port(), other.certificate().certificate);
  EXPECT_TRUE(client.error);
  expectFailure("no TLS handshake: tlsv1 alert unknown ca");
  expectThatItServes();
}

TEST_F(ServerBadClientTest, OldVersionsOfTLSAreRefused) {
  Client client(port(), authority.certificate().certificate, /*handshake=*/false);
  // The first bytes of a client that speaks nothing newer than TLS 1.1, with one cipher suite of its time.
  client.writePlain(std::string("\x16\x03\x01\x00\x2D\x01\x00\x00\x29\x03\x02", 11) + std::string(32, 'r') +
                    std::string("\x00\x00\x02\xC0\x09\x01\x00", 7));
  client.waitForEnd();
  expectFailure("no TLS handshake: unsupported protocol");
}

TEST_F(ServerBadClientTest, GarbageInsteadOfTLSCostsOneConnection) {
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

TEST_F(ServerBadClientTest, AClientThatNeverShakesHandsIsDropped) {
  limits.timeout = milliseconds(300);
  Client client(port(), authority.certificate().certificate, /*handshake=*/false);
  client.waitForEnd();
  expectFailure("no TLS handshake: it took too long");
}

TEST_F(ServerBadClientTest, GarbageInsteadOfHTTPIsRefused) {
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

TEST_F(ServerBadClientTest, ARequestThatStopsHalfWayIsDropped) {
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

TEST_F(ServerBadClientTest, ARequestThatItsClientEndsHalfWayIsToldOf) {
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

TEST_F(ServerBadClientTest, AClientThatSendsTooSlowlyIsDroppedHoweverSteadyItIs) {
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

TEST_F(ServerBadClientTest, AClientThatSendsTooMuchTooFastIsDroppedAsWell) {
  limits.timeout = milliseconds(500);
  const auto client = connect();
  client->write("POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n");
  const std::string chunk = "1;" + std::string(60000, 'x') + "\r\nx\r\n";
  const auto start = steady_clock::now();
  while (!client->error && steady_clock::now() < start + std::chrono::seconds(30)) client->write(chunk);
  EXPECT_TRUE(client->error);
  expectFailure("a request has not arrived whole: it took too long");
}

TEST_F(ServerBadClientTest, AConnectionThatNothingIsAskedOnEndsWithoutAWord) {
  limits.timeout = milliseconds(300);
  const auto client = connect();
  expectAnswer(client->exchange(loginRequest()), 200);
  client->waitForEnd();
  expectThatItServes();
  EXPECT_TRUE(log.failures().empty());
}

TEST_F(ServerBadClientTest, AClientThatVanishesHalfWayCostsOneConnection) {
  const std::string whole = wireText(loginRequest());
  for (const std::size_t size : {std::size_t{10}, whole.find("\r\n\r\n"), whole.size() - 1}) {
    const auto client = connect();
    client->write(whole.substr(0, size));
    client->vanish();
  }
  EXPECT_TRUE(eventually([this] { return log.failures().size() == 3; }));
  expectThatItServes();
}

TEST_F(ServerBadClientTest, AClientThatVanishesBeforeItsAnswerCostsOneConnection) {
  settings.login.delay = milliseconds(200);
  const auto client = connect();
  client->write(wireText(loginRequest()));
  client->vanish();
  EXPECT_TRUE(eventually([this] { return log.answers().size() == 1; }));
  expectThatItServes();
}

TEST_F(ServerBadClientTest, ALongHeaderIsRefused) {
  limits.maximumHeaderSize = 1000;
  Request request = loginRequest();
  request.fields.emplace_back("X", std::string(1000, 'x'));
  expectAnswer(exchange(request), 431, "the header has more than 1000 bytes");
  expectThatItServes();
}

TEST_F(ServerBadClientTest, AnEndlessHeaderIsRefused) {
  const auto client = connect();
  client->write("POST / HTTP/1.1\r\nX: " + std::string(1 << 20, 'x'));
  expectAnswer(client->read(), 431);
}

TEST_F(ServerBadClientTest, ALongBodyIsRefusedWhileItIsStillBeingSent) {
  settings.maximumBodySize = 1000;
  limits.lingering = std::chrono::seconds(30);
  const auto client = connect();
  Request request = loginRequest();
  request.body = std::string(16 << 20, 'x');  // more than any buffer on the way holds
  client->write(wireText(request));
  EXPECT_FALSE(client->error) << client->error.message();
  expectAnswer(client->read(), 413, "the body has more than 1000 bytes");
}

TEST_F(ServerBadClientTest, AClientThatNeverStopsSendingIsCutOff) {
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

TEST_F(ServerBadClientTest, ALongBodyWithoutALengthIsRefused) {
  settings.maximumBodySize = 1000;
  const auto client = connect();
  std::string chunks = "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (int count = 0; count < 1000; ++count) chunks += "100\r\n" + std::string(256, 'x') + "\r\n";
  client->write(chunks);
  expectAnswer(client->read(), 413, "the body has more than 1000 bytes");
}

TEST_F(ServerBadClientTest, AnEndlessHeaderOfAChunkIsRefused) {
  const auto client = connect();
  client->write("POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n1;" +
                std::string(1 << 20, 'x'));
  expectAnswer(client->read(), 400);
}

TEST_F(ServerBadClientTest, AHugeLengthIsRefusedAtOnce) {
  const auto client = connect();
  client->write("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 18446744073709551615\r\n\r\n");
  expectAnswer(client->read(), 413);
}

}  // namespace
}  // namespace kx::collector
