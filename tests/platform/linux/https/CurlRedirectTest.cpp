#include "tests/platform/linux/https/HTTPSTest.h"

namespace kx {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// Where redirects lead, and what goes there.
class CurlRedirectTest : public HTTPSTest {
 protected:
  /// Answers the next connection's request so. All that follow are targets.
  void redirect(int status, const std::string &location) {
    server.addScript([status, location](TestConnection &connection) {
      connection.handshake();
      connection.readRequest();
      connection.answer(status,
                        "Location: " + location +
                            "\r\nX-Field: redirect\r\nSet-Authorization: early\r\nConnection: close\r\n");
      connection.close();
    });
    server.setScript([](TestConnection &connection) {
      connection.handshake();
      connection.readRequest();
      connection.answer(200, "X-Field: target\r\nConnection: close\r\n");
      connection.close();
    });
  }

  Outcome postWithToken(const std::string &url) {
    return send(request(url, {{"Authorization", "Bearer secret"}}), Data{'b', 'o', 'd', 'y'});
  }
};

TEST_F(CurlRedirectTest, HandsOverTheTargetsAnswerAlone) {
  redirect(307, "/target");
  const auto outcome = postWithToken(server.url("/start"));
  EXPECT_EQ(outcome.status(), 200);
  EXPECT_EQ(outcome.field("x-field"), "target");
  EXPECT_EQ(outcome.field("set-authorization"), "");
}

TEST_F(CurlRedirectTest, KeepsTheMethodTheBodyAndTheTokenOnTheSameHost) {
  for (const int status : {307, 308}) {
    TestServer other(certificate());
    other.setScript([status](TestConnection &connection) {
      connection.handshake();
      connection.readRequest();
      connection.answer(status, "Location: /target\r\n");
      connection.readRequest();
      connection.answer(200);
    });
    EXPECT_EQ(postWithToken(other.url("/start")).status(), 200);
    ASSERT_EQ(other.requests().size(), 2u);
    EXPECT_EQ(other.requests()[1],
              "POST /target" + other.requests()[0].substr(std::string("POST /start").size()));
  }
}

TEST_F(CurlRedirectTest, WaitsLongerForTheTargetThanForABody) {
  settings.bodyTime = milliseconds(300);
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.answer(307, "Location: /target\r\n");
    connection.readRequest();
    std::this_thread::sleep_for(seconds(1));
    connection.answer(200);
  });
  EXPECT_EQ(postWithToken(server.url("/start")).status(), 200);
}

TEST_F(CurlRedirectTest, GoesOnWithoutABodyAsBrowsersDo) {
  for (const int status : {301, 302, 303}) {
    redirect(status, "/target");
    EXPECT_EQ(postWithToken(server.url("/start")).status(), 200);
    const std::string target = server.requests().back();
    EXPECT_THAT(target, StartsWith("GET /target HTTP/1.1\r\n"));
    EXPECT_THAT(target, HasSubstr("\r\nAuthorization: Bearer secret\r\n"));
    EXPECT_THAT(target, Not(HasSubstr("Content-Length")));
    EXPECT_THAT(target, EndsWith("\r\n\r\n"));
  }
}

TEST_F(CurlRedirectTest, CarriesNoTokenToAnotherHost) {
  for (const int status : {301, 302, 303, 307, 308}) {
    redirect(status, server.url("/target", "127.0.0.1"));
    EXPECT_EQ(postWithToken(server.url("/start")).status(), 200);
    const std::string target = server.requests().back();
    EXPECT_THAT(target, HasSubstr(" /target HTTP/1.1\r\nHost: 127.0.0.1:"));
    EXPECT_THAT(target, Not(HasSubstr("secret")));
    EXPECT_THAT(target, Not(HasSubstr("Authorization")));
  }
}

TEST_F(CurlRedirectTest, CarriesNoTokenToAnotherPort) {
  TestServer other(certificate());
  redirect(307, other.url("/target"));
  EXPECT_EQ(postWithToken(server.url("/start")).status(), 200);
  EXPECT_THAT(server.requests().at(0), HasSubstr("Authorization: Bearer secret"));
  EXPECT_THAT(other.requests().at(0), StartsWith("POST /target HTTP/1.1\r\n"));
  EXPECT_THAT(other.requests().at(0), EndsWith("\r\n\r\nbody"));
  EXPECT_THAT(other.requests().at(0), Not(HasSubstr("Authorization")));
}

TEST_F(CurlRedirectTest, NeverLeavesTLS) {
  for (const char *scheme : {"http", "HTTP", "ftp", "file", "gopher"}) {
    TestServer target(certificate());
    target.setScript([](TestConnection &connection) {
      connection.readRequest();
      connection.answer(200);
    });
    redirect(302, scheme + target.url("/x").substr(std::string("https").size()));
    const auto outcome = postWithToken(server.url("/start"));
    EXPECT_TRUE(outcome.error) << scheme;
    EXPECT_EQ(target.connections(), 0);
  }
}

TEST_F(CurlRedirectTest, SendsNoPasswordsThatARedirectNames) {
  TestServer target(certificate());
  redirect(302, target.url("/", "user:password@localhost"));
  EXPECT_TRUE(postWithToken(server.url("/start")).error);
  EXPECT_EQ(target.requests().size(), 0u);
}

TEST_F(CurlRedirectTest, VerifiesTheTarget) {
  TestServer other(certificateFor({"example.test"}));
  redirect(307, other.url("/target"));
  EXPECT_EQ(postWithToken(server.url("/start")).errorCode(), 60);
  EXPECT_EQ(other.requests().size(), 0u);
}

TEST_F(CurlRedirectTest, EndsLoops) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    while (true) {
      connection.readRequest();
      connection.answer(307, "Location: /again?secret=1\r\n");
    }
  });
  const auto outcome = postWithToken(server.url("/start"));
  EXPECT_EQ(outcome.errorCode(), 47);
  EXPECT_EQ(outcome.errorText(), "Maximum (10) redirects followed");
  EXPECT_EQ(server.requests().size(), 11u);
}

TEST_F(CurlRedirectTest, TakesARedirectToNowhereForTheAnswer) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.answer(302);
    connection.readRequest();
    connection.answer(302, "Location: \r\n");
    connection.stall();
  });
  EXPECT_EQ(post(server.url()).status(), 302);
  EXPECT_EQ(post(server.url()).status(), 302);
}

TEST_F(CurlRedirectTest, HasNoAnswerWhenTheTargetHasNone) {
  redirect(307, "https://nowhere.invalid/");
  EXPECT_EQ(postWithToken(server.url("/start")).errorCode(), 6);
}

}  // namespace
}  // namespace kx
