#include <memory>

#include "tests/platform/linux/https/HTTPSTest.h"

namespace kx {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::Lt;

/// What becomes of answers.
class CurlAnswerTest : public HTTPSTest {
 protected:
  /// Answers one request a connection with exactly these bytes and then does what `afterwards` says.
  void answerWith(
      std::string bytes, TestServer::Script afterwards = [](TestConnection &c) { c.close(); }) {
    server.setScript(
        [bytes = std::move(bytes), afterwards = std::move(afterwards)](TestConnection &connection) {
          connection.handshake();
          connection.readRequest();
          connection.send(bytes);
          afterwards(connection);
        });
  }
};

TEST_F(CurlAnswerTest, HandsOverEveryFinalStatus) {
  for (const int status : {200, 201, 204, 299, 304, 400, 401, 403, 404, 413, 500, 503, 599}) {
    server.addScript([status](TestConnection &connection) {
      connection.handshake();
      connection.readRequest();
      connection.answer(status, "X-Status: " + std::to_string(status) + "\r\nConnection: close\r\n");
    });
    const auto outcome = post(server.url());
    EXPECT_EQ(outcome.status(), status);
    EXPECT_EQ(outcome.field("x-status"), std::to_string(status));
  }
}

TEST_F(CurlAnswerTest, PassesOverInterimResponses) {
  answerWith(
      "HTTP/1.1 100 Continue\r\nX-Interim: a\r\n\r\n"
      "HTTP/1.1 103 Early Hints\r\nX-Interim: b\r\nLocation: /elsewhere\r\n\r\n"
      "HTTP/1.1 201 Created\r\nX-Final: c\r\nContent-Length: 0\r\n\r\n");
  const auto outcome = post(server.url());
  EXPECT_EQ(outcome.status(), 201);
  EXPECT_EQ(outcome.field("X-Final"), "c");
  EXPECT_EQ(outcome.field("X-Interim"), "");
  EXPECT_EQ(outcome.field("Location"), "");
}

TEST_F(CurlAnswerTest, TakesNoInterimResponseForAnAnswer) {
  answerWith("HTTP/1.1 101 Switching Protocols\r\nUpgrade: other\r\nConnection: Upgrade\r\n\r\n");
  EXPECT_TRUE(post(server.url()).error);
  answerWith("HTTP/1.1 100 Continue\r\n\r\n");
  EXPECT_TRUE(post(server.url()).error);
}

TEST_F(CurlAnswerTest, JoinsRepeatedFieldsWhateverTheirCase) {
  answerWith(
      "HTTP/1.1 200 OK\r\nSet-Authorization: one\r\nX-Other:\t x \r\nset-authorization:two\r\nX-Empty:\r\n"
      "SET-AUTHORIZATION: three\r\nContent-Length: 0\r\n\r\n");
  const auto outcome = post(server.url());
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.field("set-Authorization"), "one, two, three");
  EXPECT_EQ(outcome.field("x-other"), "x");
  ASSERT_EQ(outcome.response->allHeaderFields().count("X-Empty"), 1u);
  EXPECT_EQ(outcome.response->allHeaderFields().at("X-Empty"), "");
  EXPECT_EQ(outcome.response->allHeaderFields().size(), 4u);
}

TEST_F(CurlAnswerTest, LeavesOutFieldsThatAreNotUTF8) {
  answerWith(
      "HTTP/1.1 200 OK\r\nX-Text: Zo\xc3\xab\r\nX-Bytes: Zo\xeb\r\nX-N\xebme: a\r\nX-Twice: a\r\n"
      "X-Twice: \xff\r\nContent-Length: 0\r\n\r\n");
  const auto outcome = post(server.url());
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.field("X-Text"), "Zo\xc3\xab");
  EXPECT_EQ(outcome.field("X-Twice"), "a");
  EXPECT_EQ(outcome.response->allHeaderFields().size(), 3u);
}

TEST_F(CurlAnswerTest, LeavesOutTrailers) {
  answerWith(
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nX-Header: a\r\n\r\n"
      "2\r\n{}\r\n0\r\nX-Trailer: b\r\nHTTP/1.1 500 Trailer\r\n\r\n");
  const auto outcome = post(server.url());
  EXPECT_EQ(outcome.status(), 200);
  EXPECT_EQ(outcome.field("X-Header"), "a");
  EXPECT_EQ(outcome.field("X-Trailer"), "");
}

TEST_F(CurlAnswerTest, TakesHeadersOfThirtyThousandBytes) {
  answerWith("HTTP/1.1 200 OK\r\nX-Large: " + std::string(30'000, 'a') + "\r\nContent-Length: 0\r\n\r\n");
  EXPECT_EQ(post(server.url()).field("x-large").size(), 30'000u);
}

TEST_F(CurlAnswerTest, TakesHeadersOfManyFieldsInAMoment) {
  std::string fields;
  while (fields.size() < 30'000) fields += "a:b\r\n";
  answerWith("HTTP/1.1 200 OK\r\n" + fields + "Content-Length: 0\r\n\r\n");
  const auto outcome = post(server.url());
  EXPECT_EQ(outcome.status(), 200);
  EXPECT_THAT(outcome.duration, Lt(seconds(20)));
}

TEST_F(CurlAnswerTest, RefusesHeadersWithoutEnd) {
  answerWith("HTTP/1.1 200 OK\r\n", [](TestConnection &connection) {
    while (true) connection.send("X-Field: " + std::string(1000, 'a') + "\r\n");
  });
  const auto outcome = post(server.url());
  EXPECT_EQ(outcome.errorText(), "The header of the answer is too large");
}

TEST_F(CurlAnswerTest, RefusesHeaderLinesWithoutEnd) {
  answerWith("HTTP/1.1 200 OK\r\nX-Field: ", [](TestConnection &connection) {
    while (true) connection.send(std::string(1000, 'a'));
  });
  EXPECT_TRUE(post(server.url()).error);
}

TEST_F(CurlAnswerTest, RefusesHeadersThatAreTooLargeOverAllRedirects) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    while (true) {
      connection.readRequest();
      connection.answer(307, "Location: /\r\nX-Large: " + std::string(10'000, 'a') + "\r\n");
    }
  });
  EXPECT_EQ(post(server.url()).errorText(), "The header of the answer is too large");
  EXPECT_EQ(server.requests().size(), 4u);
}

TEST_F(CurlAnswerTest, KnowsTheAnswerWhateverBecomesOfTheBody) {
  const std::string header = "HTTP/1.1 200 OK\r\nSet-Authorization: token\r\nContent-Length: 1000\r\n\r\n";
  answerWith(header + "abc", [](TestConnection &connection) { connection.close(); });
  EXPECT_EQ(post(server.url()).field("set-authorization"), "token");
  answerWith(header + "abc", [](TestConnection &) {});
  EXPECT_EQ(post(server.url()).field("set-authorization"), "token");
  answerWith("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nSet-Authorization: token\r\n\r\nnonsense\r\n");
  EXPECT_EQ(post(server.url()).field("set-authorization"), "token");
}

TEST_F(CurlAnswerTest, LeavesBodiesThatAreTooLong) {
  settings.bodyTime = seconds(3600);
  answerWith("HTTP/1.1 201 Created\r\n\r\n", [](TestConnection &connection) {
    while (true) connection.send(std::string(10'000, 'a'));
  });
  EXPECT_EQ(post(server.url()).status(), 201);
}

TEST_F(CurlAnswerTest, LeavesBodiesThatTakeTooLong) {
  settings.bodyTime = milliseconds(300);
  answerWith("HTTP/1.1 201 Created\r\nTransfer-Encoding: chunked\r\n\r\n", [](TestConnection &connection) {
    while (true) {
      connection.send("1\r\na\r\n");
      std::this_thread::sleep_for(milliseconds(20));
    }
  });
  EXPECT_EQ(post(server.url()).status(), 201);
}

TEST_F(CurlAnswerTest, LeavesTheBodiesOfRedirectsToo) {
  answerWith("HTTP/1.1 302 Found\r\nLocation: /\r\nTransfer-Encoding: chunked\r\n\r\n",
             [](TestConnection &connection) {
               while (true) connection.send("1000\r\n" + std::string(0x1000, 'a') + "\r\n");
             });
  EXPECT_EQ(post(server.url()).errorCode(), 28);

  TestServer slow(certificate());
  slow.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.send("HTTP/1.1 302 Found\r\nLocation: /\r\nContent-Length: 1000\r\n\r\n");
    connection.stall();
  });
  EXPECT_EQ(post(slow.url()).errorCode(), 28);
}

TEST_F(CurlAnswerTest, ReadsShortBodiesToReuseTheConnection) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    while (true) {
      connection.readRequest();
      connection.answer(200, "", std::string(50'000, 'a'));
    }
  });
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_EQ(server.connections(), 1);
}

TEST_F(CurlAnswerTest, RefusesWhatIsNotHTTP) {
  for (const char *bytes : {"220 mail.example ESMTP\r\n", "HTTP/1.1 abc\r\n\r\n", "\r\n\r\n",
                            "HTTP/1.1 200 OK\r\nno colon\r\n\r\n"}) {
    answerWith(bytes);
    const auto outcome = post(server.url());
    ASSERT_TRUE(outcome.error) << bytes;
    EXPECT_EQ(outcome.error->domain, "libcurl");
  }
}

}  // namespace
}  // namespace kx
