#include <cstdlib>

#include "tests/platform/linux/https/HTTPSTest.h"
#include "tests/platform/linux/https/InterposedCalls.h"

namespace kx {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

/// Proxies, and the environment that names them.
class CurlProxyTest : public HTTPSTest {
 protected:
  /// What becomes of a request by these variables to a host that cannot be resolved: without a proxy it
  /// cannot be connected to.
  long errorBy(std::map<std::string, std::string> variables) {
    settings.proxy = CurlProxy(Environment(std::move(variables)));
    CurlURLSessionService another(dispatch, settings);
    return sendBy(another, request("https://nowhere.invalid/")).errorCode();
  }

  static std::string closedPort() {
    const collector::CertificateAuthority authority("Another");
    return TestServer(authority.certificate()).url().replace(0, 5, "http");
  }

  const std::string closed = closedPort();
};

TEST_F(CurlProxyTest, GoesThroughTheProxyThatIsNamed) {
  for (const char *name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}) {
    EXPECT_EQ(errorBy({{name, closed}}), couldNotConnect) << name;
  }
  EXPECT_EQ(errorBy({}), couldNotResolve);
  EXPECT_EQ(errorBy({{"http_proxy", closed}}), couldNotResolve);
}

TEST_F(CurlProxyTest, TakesTheNarrowerNameBeforeTheWiderOneAndSmallLettersBeforeCapitals) {
  const std::string unresolved = "http://proxy.invalid:1/";
  constexpr long proxyNotResolved = 5;
  EXPECT_EQ(errorBy({{"https_proxy", closed}, {"HTTPS_PROXY", unresolved}}), couldNotConnect);
  EXPECT_EQ(errorBy({{"HTTPS_PROXY", closed}, {"all_proxy", unresolved}}), couldNotConnect);
  EXPECT_EQ(errorBy({{"all_proxy", closed}, {"ALL_PROXY", unresolved}}), couldNotConnect);
  EXPECT_EQ(errorBy({{"all_proxy", unresolved}}), proxyNotResolved);
  EXPECT_EQ(errorBy({{"https_proxy", ""}, {"HTTPS_PROXY", closed}}), couldNotConnect);
  EXPECT_EQ(errorBy({{"https_proxy", closed}, {"no_proxy", "other.invalid"}, {"NO_PROXY", "*"}}),
            couldNotConnect);
}

TEST_F(CurlProxyTest, GoesWithoutItToTheHostsThatAreExcepted) {
  for (const char *name : {"no_proxy", "NO_PROXY"}) {
    EXPECT_EQ(errorBy({{"https_proxy", closed}, {name, "nowhere.invalid"}}), couldNotResolve) << name;
    EXPECT_EQ(errorBy({{"https_proxy", closed}, {name, "other.test, .invalid"}}), couldNotResolve) << name;
    EXPECT_EQ(errorBy({{"https_proxy", closed}, {name, "*"}}), couldNotResolve) << name;
  }
}

TEST_F(CurlProxyTest, KeepsToTheEnvironmentInWhichTheServiceWasMade) {
  for (const char *name : {"all_proxy", "ALL_PROXY", "HTTPS_PROXY", "no_proxy", "NO_PROXY"}) unsetenv(name);
  setenv("https_proxy", closed.c_str(), 1);
  CurlURLSessionService made(dispatch, settings.certificateAuthorityFile);
  unsetenv("https_proxy");
  EXPECT_EQ(sendBy(made, request("https://nowhere.invalid/")).errorCode(), couldNotConnect);

  CurlURLSessionService madeLater(dispatch, settings.certificateAuthorityFile);
  setenv("https_proxy", closed.c_str(), 1);
  EXPECT_EQ(sendBy(madeLater, request("https://nowhere.invalid/")).errorCode(), couldNotResolve);
}

TEST_F(CurlProxyTest, ReadsNoEnvironmentOnceTLSIsInitialised) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.answer(200, "Connection: close\r\n");
  });
  // What TLS and curl read while they initialise themselves, once in a process, is their own affair.
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_THAT(InterposedCalls::environmentReads(), Not(Contains(HasSubstr("proxy"))));
  EXPECT_THAT(InterposedCalls::environmentReads(), Not(Contains(HasSubstr("PROXY"))));
  InterposedCalls::forgetEnvironmentReads();
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_EQ(post("https://nowhere.invalid/").errorCode(), couldNotResolve);
  settings.proxy = CurlProxy(Environment({{"https_proxy", closed}}));
  CurlURLSessionService another(dispatch, settings);
  EXPECT_EQ(sendBy(another, request(server.url())).errorCode(), couldNotConnect);
  EXPECT_THAT(InterposedCalls::environmentReads(), IsEmpty());
}

TEST_F(CurlProxyTest, TellsAProxyNothingOfTheRequestAndTakesNothingFromIt) {
  settings.proxy = CurlProxy(Environment({{"https_proxy", server.url().replace(0, 5, "http")}}));
  server.setScript([](TestConnection &connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 Connected\r\nSet-Authorization: proxy\r\n");
    for (int i = 0; i < 5; ++i) connection.send("X-Large: " + std::string(8000, 'a') + "\r\n");
    connection.send("\r\n");
    connection.handshake();
    connection.readRequest();
    connection.answer(200, "X-Field: target\r\n");
  });
  const auto outcome = send(
      request("https://localhost:1/path", {{"Authorization", "Bearer secret"}, {"Content-Type", "a/b"}}));
  EXPECT_EQ(outcome.status(), 200);
  EXPECT_EQ(outcome.field("x-field"), "target");
  EXPECT_EQ(outcome.field("set-authorization"), "");
  ASSERT_EQ(server.requests().size(), 2u);
  EXPECT_THAT(server.requests()[0], StartsWith("CONNECT localhost:1 HTTP/1.1\r\n"));
  EXPECT_THAT(server.requests()[0], Not(HasSubstr("secret")));
  EXPECT_THAT(server.requests()[0], Not(HasSubstr("path")));
  EXPECT_THAT(server.requests()[0], Not(HasSubstr("a/b")));
  EXPECT_THAT(server.requests()[1], HasSubstr("\r\nAuthorization: Bearer secret\r\n"));
}

}  // namespace
}  // namespace kx
