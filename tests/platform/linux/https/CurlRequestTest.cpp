#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "tests/platform/linux/https/HTTPSTest.h"

namespace kx {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// What goes over the wire.
class CurlRequestTest : public HTTPSTest {
 protected:
  std::string host() const { return "localhost:" + std::to_string(server.port()); }
};

TEST_F(CurlRequestTest, SendsTheMethodTheFieldsAndTheBodyAndNothingElseOfItsOwn) {
  const auto outcome = send(request(server.url("/api/post"), {{"Content-Type", "application/json"},
                                                              {"Content-Encoding", "gzip"},
                                                              {"Authorization", "Bearer token"}}),
                            Data{0x1f, 0x8b, 0x00, '\n'});
  EXPECT_EQ(outcome.status(), 200);
  ASSERT_EQ(server.requests().size(), 1u);
  using namespace std::string_literals;
  EXPECT_EQ(server.requests()[0],
            "POST /api/post HTTP/1.1\r\n"
            "Host: " +
                host() +
                "\r\n"
                "Content-Type: application/json\r\n"
                "Content-Encoding: gzip\r\n"
                "Authorization: Bearer token\r\n"
                "Content-Length: 4\r\n"
                "\r\n"
                "\x1f\x8b\x00\n"s);
}

TEST_F(CurlRequestTest, SendsAHeaderOfFewBytes) {
  const auto outcome =
      send(request(server.url("/api_v0_0_0/post_msg"), {{"Content-Type", "application/json"},
                                                        {"Content-Encoding", "gzip"},
                                                        {"Authorization", "Bearer " + std::string(64, 't')}}),
           Data(478, 'x'));
  EXPECT_EQ(outcome.status(), 200);
  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_LE(server.requests()[0].size() - 478, 230u);
}

TEST_F(CurlRequestTest, SendsAnEmptyBodyWhenThereIsNone) {
  EXPECT_EQ(send(request(server.url()), std::nullopt).status(), 200);
  EXPECT_EQ(send(request(server.url()), Data()).status(), 200);
  ASSERT_EQ(server.requests().size(), 2u);
  for (const auto &sent : server.requests()) {
    EXPECT_EQ(sent, "POST / HTTP/1.1\r\nHost: " + host() + "\r\nContent-Length: 0\r\n\r\n");
  }
}

TEST_F(CurlRequestTest, SendsLargeBodiesWhole) {
  Data body(10 * 1024 * 1024);
  for (std::size_t i = 0; i < body.size(); ++i) body[i] = static_cast<std::uint8_t>(i * i >> 8);
  const auto outcome = send(request(server.url()), body);
  EXPECT_EQ(outcome.status(), 200);
  ASSERT_EQ(server.requests().size(), 1u);
  const std::string sent = server.requests()[0];
  EXPECT_THAT(sent.substr(0, 512), HasSubstr("Content-Length: 10485760\r\n"));
  EXPECT_THAT(sent.substr(0, 512), Not(HasSubstr("Expect")));
  ASSERT_GT(sent.size(), body.size());
  EXPECT_TRUE(
      std::equal(body.begin(), body.end(), sent.end() - static_cast<std::ptrdiff_t>(body.size()),
                 [](std::uint8_t left, char right) { return left == static_cast<std::uint8_t>(right); }));
}

TEST_F(CurlRequestTest, SendsThePathAsItIsWritten) {
  for (const char *path : {"//x", "/a/../b/./c", "/%7e?q=1&r=%20", "/?", "/api_v0_0_0/do_login"}) {
    const auto url = service().URLWithString(server.url(path));
    ASSERT_TRUE(url) << path;
    EXPECT_EQ(post(url->absoluteString).status(), 200);
    EXPECT_THAT(server.requests().back(), StartsWith("POST " + std::string(path) + " HTTP/1.1\r\n"));
  }
}

TEST_F(CurlRequestTest, SendsEmptyFieldsAndFieldsOutsideASCII) {
  send(request(server.url(), {{"X-Empty", ""}, {"X-Blank", " \t "}, {"X-Name", "Zo\xc3\xab\tand \xff"}}));
  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_THAT(server.requests()[0],
              HasSubstr("\r\nX-Empty:\r\nX-Blank:\r\nX-Name: Zo\xc3\xab\tand \xff\r\n"));
}

TEST_F(CurlRequestTest, SendsOtherMethodsAndTakesARedirectForTheirAnswer) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.answer(303, "Location: /elsewhere\r\n");
  });
  URLRequest put = request(server.url("/put"));
  put.HTTPMethod = "PUT";
  const auto outcome = send(put, Data{'x'});
  EXPECT_EQ(outcome.status(), 303);
  EXPECT_EQ(outcome.field("location"), "/elsewhere");
  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_THAT(server.requests()[0], StartsWith("PUT /put HTTP/1.1\r\n"));
  EXPECT_THAT(server.requests()[0], EndsWith("\r\nContent-Length: 1\r\n\r\nx"));
}

TEST_F(CurlRequestTest, RefusesFieldsAndMethodsThatWouldBreakOutOfTheirLine) {
  using namespace std::string_literals;
  std::vector<URLRequest> requests;
  for (const auto &text : {"a\r\nX-Injected: 1"s, "a\nb"s, "a\rb"s, "a\0b"s, "a\x7f"s, "\x1b[m"s}) {
    requests.push_back(request(server.url(), {{"Authorization", text}}));
    requests.push_back(request(server.url(), {{text, "value"}}));
    requests.push_back(request(server.url()));
    requests.back().HTTPMethod = text;
  }
  for (const auto &name : {""s, "a b"s, "a:b"s, "a;"s, "\xc3\xab"s}) {
    requests.push_back(request(server.url(), {{name, "value"}}));
    requests.push_back(request(server.url()));
    requests.back().HTTPMethod = name;
  }
  for (const auto &refused : requests) {
    const auto outcome = send(refused);
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->domain, "libcurl");
    EXPECT_EQ(outcome.error->code, 43);
    EXPECT_THAT(outcome.errorText(), Not(HasSubstr("Injected")));
  }
  EXPECT_EQ(server.connections(), 0);
}

TEST_F(CurlRequestTest, SendsNoCookiesBack) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    while (true) {
      connection.readRequest();
      connection.answer(200, "Set-Cookie: a=b; Path=/\r\n");
    }
  });
  post(server.url());
  post(server.url());
  ASSERT_EQ(server.requests().size(), 2u);
  EXPECT_EQ(server.connections(), 1);
  EXPECT_EQ(server.requests()[0], server.requests()[1]);
}

TEST_F(CurlRequestTest, SendsNoPasswordsOfTheUsers) {
  setenv("HOME", directory.path().c_str(), 1);
  std::ofstream(directory.path() + "/.netrc") << "default login user password secret\n";
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_THAT(server.requests().at(0), Not(HasSubstr("Authorization")));

  const auto outcome = post("https://user:secret@" + host() + "/");
  EXPECT_TRUE(outcome.error);
  EXPECT_THAT(outcome.errorText(), Not(HasSubstr("secret")));
  EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(CurlRequestTest, SendsByTLSOnly) {
  for (const char *scheme : {"http", "ftp", "file", "HTTP"}) {
    const auto outcome = post(scheme + std::string("://") + host() + "/");
    EXPECT_TRUE(outcome.error) << scheme;
  }
  EXPECT_EQ(server.connections(), 0);
}

TEST_F(CurlRequestTest, ReachesLiteralAddresses) {
  EXPECT_EQ(post(server.url("/", "127.0.0.1")).status(), 200);
  TestServer::Options options;
  options.address = "::1";
  TestServer other(certificate(), options);
  const auto url = service().URLWithString(other.url("/", "[::1]"));
  ASSERT_TRUE(url);
  EXPECT_EQ(post(url->absoluteString).status(), 200);
}

}  // namespace
}  // namespace kx
