#include <filesystem>
#include <iterator>

#include "tests/platform/linux/https/FaultyRelay.h"
#include "tests/platform/linux/https/HTTPSTest.h"

namespace kx {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::Ge;
using ::testing::Lt;

constexpr long tooManyRedirects = 47;
constexpr long nothingCame = 52;
constexpr long receiveError = 56;
constexpr long anyError = -1;

/// What servers and networks do to a request. Whatever it is: one outcome, the prescribed one, in its time;
/// nothing is left of it; and the next request is answered as if nothing had been.
class CurlTroubleTest : public HTTPSTest {
 protected:
  CurlTroubleTest() {
    settings.timeoutWithoutProgress = milliseconds(700);
    settings.bodyTime = milliseconds(300);
    settings.linger = seconds(2);
  }

  /// To be called before the first request, and then at the end.
  void noteWhatThereIs() {
    EXPECT_EQ(post(server.url()).status(), 200);
    expectRest();
    descriptors_ = descriptors();
  }
  void expectNothingLeft() {
    expectRest();
    EXPECT_TRUE(eventually([this] { return descriptors() == descriptors_; }));
  }

  /// `error` is a number of curl's, or `anyError`; zero where an answer is to come.
  void expectThen(const Outcome &outcome, long status, long error, const std::string &what) {
    if (error == anyError) {
      EXPECT_TRUE(outcome.error) << what;
    } else {
      EXPECT_EQ(outcome.errorCode(), error) << what << ": " << outcome.errorText();
    }
    EXPECT_EQ(outcome.status(), status) << what;
    EXPECT_THAT(outcome.duration, Lt(seconds(20))) << what;
    ++sent_;
    server.setScript(&TestServer::serve);
    EXPECT_EQ(post(server.url("/next")).status(), 200) << "after: " << what;
    ++sent_;
    EXPECT_EQ(outcomes().size(), sent_ + 1) << what;  // with the first one
  }

  /// One request to a server that reads it and then does this.
  void expectOf(const std::string &what, TestServer::Script script, long status, long error = 0) {
    server.addScript([script = std::move(script)](TestConnection &connection) {
      connection.handshake();
      connection.readRequest();
      script(connection);
    });
    // On a connection of its own: the one that is kept has another script.
    closeConnections();
    expectThen(post(server.url()), status, error, what);
  }

  /// The same with a server that says this and closes the connection, or goes on serving it.
  void expectOfBytes(const std::string &bytes, long status, long error = 0) {
    const std::string what = bytes.substr(0, 60);
    expectOf(
        what + " (closed)",
        [bytes](TestConnection &connection) {
          connection.send(bytes);
          connection.close();
        },
        status, error);
    expectOf(
        what + " (open)",
        [bytes](TestConnection &connection) {
          connection.send(bytes);
          while (true) {
            connection.readRequest();
            connection.answer(200);
          }
        },
        status, error == 0 ? 0 : anyError);
  }

  void closeConnections() {
    server.interruptAll();
    EXPECT_TRUE(eventually([this] { return server.isIdle(); }));
    expectRest();
  }

 private:
  static std::size_t descriptors() {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
  }

  void expectRest() {
    EXPECT_TRUE(eventually([] { return threadsNamed("kx-transport") == 0; }));
    EXPECT_TRUE(eventually([this] { return server.isIdle(); }));
  }

  std::size_t descriptors_ = 0;
  std::size_t sent_ = 0;
};

TEST_F(CurlTroubleTest, NobodyIsThere) {
  noteWhatThereIs();
  std::string closed;
  {
    TestServer other(certificate());
    closed = other.url();
  }
  expectThen(post(closed), 0, couldNotConnect, "refused");
  expectThen(post("https://nowhere.invalid/"), 0, couldNotResolve, "no such name");
  expectNothingLeft();
}

TEST_F(CurlTroubleTest, TheNetworkFailsAfterAnyNumberOfBytes) {
  noteWhatThereIs();
  // The handshake's first message has some hundred bytes, the certificates some thousand, and with the
  // tickets and the answer it is less than two thousand in all.
  for (const std::size_t bytes : {0U, 1U, 4U, 5U, 60U, 127U, 128U, 300U, 600U, 900U, 1200U, 1500U}) {
    for (const auto fault : {FaultyRelay::Fault::closes, FaultyRelay::Fault::resets}) {
      const FaultyRelay relay(server.port(), bytes, fault);
      const auto outcome = post(relay.url());
      // Once the answer's header is there, it is the answer.
      expectThen(outcome, outcome.status(), outcome.status() == 200 ? 0 : anyError, std::to_string(bytes));
      EXPECT_TRUE(bytes > 600 || outcome.status() == 0) << bytes;
    }
  }
  for (const std::size_t bytes : {0U, 1U, 60U, 128U, 600U, 900U}) {
    const FaultyRelay relay(server.port(), bytes, FaultyRelay::Fault::stalls);
    const auto outcome = post(relay.url());
    expectThen(outcome, 0, timedOut, std::to_string(bytes));
    EXPECT_THAT(outcome.duration, Ge(milliseconds(695)));
  }
  expectNothingLeft();
}

TEST_F(CurlTroubleTest, CertificatesAreNoGood) {
  noteWhatThereIs();
  const auto now = std::chrono::system_clock::now();
  const auto hour = std::chrono::hours(1);
  const collector::CertificateAuthority unknown("Test authority");
  const std::vector<std::pair<std::string, collector::PemCertificate>> certificates = {
      {"wrong name", certificateFor({"example.test"})},
      {"expired", authority.issue({"localhost"}, now - 2 * hour, now - hour)},
      {"not yet", authority.issue({"localhost"}, now + hour, now + 2 * hour)},
      {"unknown", unknown.issue({"localhost"}, now - hour, now + hour)},
  };
  for (const auto &[what, bad] : certificates) {
    TestServer other(bad);
    expectThen(post(other.url()), 0, 60, what);
    EXPECT_EQ(other.requests().size(), 0u) << what;
  }
  expectNothingLeft();
}

TEST_F(CurlTroubleTest, StatusesOfEveryClass) {
  noteWhatThereIs();
  for (const long status :
       {200, 201, 204, 205, 226, 299, 300, 301, 302, 303, 304, 305, 307, 308, 399, 400, 401,
        403, 404, 407, 408, 417, 421, 425, 426, 429, 499, 500, 502, 503, 511, 599, 600, 999}) {
    // A redirect without a target is the answer itself.
    expectOfBytes("HTTP/1.1 " + std::to_string(status) + " Status\r\nContent-Length: 0\r\n\r\n", status);
  }
  for (const char *line :
       {"HTTP/1.1 000 Zero", "HTTP/1.1 20 Short", "HTTP/1.1 2000 Long", "HTTP/1.1 -200 Minus", "HTTP/1.1 OK",
        "HTTP/1.1", "HTTP/ 200 OK", "HTTP/9.9 200 OK", "HTCPCP/1.0 418 I'm a teapot", "<html>"}) {
    expectOfBytes(std::string(line) + "\r\nContent-Length: 0\r\n\r\n", 0, anyError);
  }
  expectNothingLeft();
}

TEST_F(CurlTroubleTest, OldProtocols) {
  noteWhatThereIs();
  expectOfBytes("HTTP/1.0 200 OK\r\n\r\n", 200);
  expectOfBytes("HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\n{}", 200);
  expectOfBytes("HTTP/1.0 200 OK\r\nContent-Length: 2\r\nConnection: keep-alive\r\n\r\n{}", 200);
  expectOfBytes("HTTP/1.0 403 Forbidden\r\n\r\n", 403);
  expectNothingLeft();
}

TEST_F(CurlTroubleTest, InterimAnswers) {
  noteWhatThereIs();
  const std::string interim = "HTTP/1.1 100 Continue\r\n\r\n";
  const std::string ok = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
  expectOfBytes(interim + ok, 200);
  expectOfBytes(interim + interim + interim + "HTTP/1.1 102 Processing\r\n\r\n" + ok, 200);
  expectOfBytes("HTTP/1.1 100 Continue\r\nContent-Length: 5\r\n\r\n" + ok, 200);
  expectOfBytes(interim, 0, anyError);
  expectOfBytes(interim + "HTTP/1.1 417 Expectation Failed\r\nContent-Length: 0\r\n\r\n", 417);
  expectOf(
      "no end of them",
      [interim](TestConnection &connection) {
        while (true) connection.send(interim);
      },
      0, anyError);
  expectNothingLeft();
}

TEST_F(CurlTroubleTest, HeadersAndBodiesWithoutMeasure) {
  noteWhatThereIs();
  const std::string line = "X-Field: " + std::string(1000, 'a') + "\r\n";
  const auto endless = [](const std::string &beginning, const std::string &rest) {
    return [=](TestConnection &connection) {
      connection.send(beginning);
      while (true) connection.send(rest);
    };
  };
  expectOf("headers", endless("HTTP/1.1 200 OK\r\n", line), 0, anyError);
  expectOf("a line", endless("HTTP/1.1 200 OK\r\nX: ", line.substr(9, 900)), 0, anyError);
  expectOf("the first line", endless("HTTP/1.1 200 ", line.substr(9, 900)), 0, anyError);
  expectOf("folded", endless("HTTP/1.1 200 OK\r\nX: a\r\n", " a\r\n"), 0, anyError);
  expectOf("a body", endless("HTTP/1.1 200 OK\r\n\r\n", line), 200);
  expectOf("chunks", endless("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n", "1\r\na\r\n"), 200);
  expectOf("a chunk's size", endless("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n", "0"), 200);
  expectOf("trailers", endless("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n", line), 200);
  expectNothingLeft();
}

TEST_F(CurlTroubleTest, LengthsThatAreWrong) {
  noteWhatThereIs();
  const auto answer = [](const std::string &length, const std::string &body) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + length + "\r\n\r\n" + body;
  };
  expectOfBytes(answer("10", "short"), 200);
  expectOfBytes(answer("2", "too long"), 200);
  expectOfBytes(answer("9223372036854775807", "short"), 200);
  expectOfBytes("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n", 200);
  expectOfBytes("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nffffffffffffffffff\r\na", 200);
  expectOfBytes(
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Length: 3\r\n\r\n2\r\n{}\r\n0\r\n\r\n", 200);
  expectOfBytes("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 5\r\n\r\nhello", 200);
  // Some of these have a length that curl refuses before the header's end; then there is no answer.
  expectOfBytes(answer("-1", ""), 0, anyError);
  expectOfBytes(answer("five", "hello"), 0, anyError);
  expectNothingLeft();
}

TEST_F(CurlTroubleTest, AByteNowAndThenEndsInTime) {
  settings.timeoutForResource = milliseconds(1500);
  EXPECT_EQ(CurlSettings().timeoutForResource, std::chrono::hours(7 * 24));
  noteWhatThereIs();
  const auto trickle = [](const std::string &beginning) {
    return [beginning](TestConnection &connection) {
      connection.send(beginning);
      while (true) {
        connection.send("a");
        std::this_thread::sleep_for(milliseconds(100));
      }
    };
  };
  expectOf("before the answer", trickle("HTTP/1.1 200 OK\r\nX-Field: "), 0, timedOut);
  EXPECT_THAT(outcomes()[1].duration, Ge(milliseconds(1495)));
  expectOf("in its body", trickle("HTTP/1.1 200 OK\r\n\r\n"), 200);
  expectNothingLeft();
}

TEST_F(CurlTroubleTest, BytesAfterTheEndOfAnAnswer) {
  noteWhatThereIs();
  const auto later = [](const std::string &answer, const std::string &rest) {
    return [=](TestConnection &connection) {
      connection.send(answer);
      std::this_thread::sleep_for(milliseconds(30));
      connection.send(rest);
      while (true) {  // what is sent on this connection is answered, too
        connection.readRequest();
        connection.answer(200);
      }
    };
  };
  const std::string forged = "HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\n\r\n";
  const std::string none = "HTTP/1.1 204 No Content\r\n\r\n";
  const std::string empty = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
  const std::string announced = "HTTP/1.1 204 No Content\r\nContent-Length: 5\r\n\r\n";
  const std::string chunked = "HTTP/1.1 204 No Content\r\nTransfer-Encoding: chunked\r\n\r\n";
  // The next request comes at once where the answer itself tells that the connection is no good, and where it
  // does not, when the rest is there.
  expectOf("announced", later(announced, "hello"), 204);
  expectOf("announced, forged", later(announced, forged), 204);
  expectOf("in chunks", later(chunked, "5\r\nhello\r\n0\r\n\r\n"), 204);
  const auto expectWithPause = [&](const std::string &what, const std::string &answer,
                                   const std::string &rest, long status) {
    server.addScript([script = later(answer, rest)](TestConnection &connection) {
      connection.handshake();
      connection.readRequest();
      script(connection);
    });
    closeConnections();
    const auto outcome = post(server.url());
    std::this_thread::sleep_for(milliseconds(300));
    expectThen(outcome, status, 0, what);
  };
  expectWithPause("not announced", none, "hello", 204);
  expectWithPause("not announced, forged", none, forged, 204);
  expectWithPause("after an empty body", empty, "hello", 200);
  expectWithPause("after an empty body, forged", empty, forged, 200);
  expectOf("at once", later(none + "hello", ""), 204);
  expectOf("at once, after a body", later("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}hello", ""), 200);
  expectNothingLeft();
}

TEST_F(CurlTroubleTest, RedirectsThatLeadNowhere) {
  noteWhatThereIs();
  const auto redirectTo = [](const std::string &location) {
    return [location](TestConnection &connection) {
      do {
        connection.answer(307, "Location: " + location + "\r\n");
      } while (connection.readRequest().find("/next") == std::string::npos);
      connection.answer(200);
      connection.stall();
    };
  };
  expectOf("to itself", redirectTo("/"), 0, tooManyRedirects);
  expectOf("to no host", redirectTo("https://nowhere.invalid/"), 0, 6);
  expectOf("to a text", redirectTo("https://[/"), 0, anyError);
  expectOf("to plain HTTP", redirectTo(server.url().replace(0, 5, "http")), 0, 1);
  // Between two hosts, without end.
  TestServer other(certificate());
  other.setScript([url = server.url()](TestConnection &connection) {
    connection.handshake();
    while (true) {
      connection.readRequest();
      connection.answer(307, "Location: " + url + "\r\n");
    }
  });
  expectOf("to and fro", redirectTo(other.url("/", "127.0.0.1")), 0, tooManyRedirects);
  EXPECT_EQ(other.requests().size(), 5u);
}

TEST_F(CurlTroubleTest, ConnectionsThatAreClosedBetweenRequests) {
  noteWhatThereIs();
  for (const bool reset : {false, true}) {
    for (const int pause : {0, 50}) {
      expectOf(
          std::string(reset ? "reset" : "closed") + " after " + std::to_string(pause),
          [reset, pause](TestConnection &connection) {
            connection.answer(200);
            std::this_thread::sleep_for(milliseconds(pause));
            if (reset) {
              connection.reset();
            } else {
              connection.close();
            }
          },
          200);
    }
  }
  expectNothingLeft();
}

TEST_F(CurlTroubleTest, AServiceThatIsKilledAndStartedAgain) {
  TestServer::Options options;
  auto other = std::make_unique<TestServer>(certificate(), options);
  options.port = other->port();
  const std::string url = other->url();
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(post(url).status(), 200);
    other.reset();
    EXPECT_EQ(post(url).errorCode(), 7);
    other = std::make_unique<TestServer>(certificate(), options);
    EXPECT_EQ(post(url).status(), 200);
  }
  EXPECT_EQ(outcomes().size(), 15u);
}

TEST_F(CurlTroubleTest, AnswersThatDoNotCome) {
  noteWhatThereIs();
  expectOf(
      "closed", [](TestConnection &connection) { connection.close(); }, 0, nothingCame);
  expectOf(
      "reset", [](TestConnection &connection) { connection.reset(); }, 0, receiveError);
  expectOf(
      "silent", [](TestConnection &connection) { connection.stall(); }, 0, timedOut);
  expectOf(
      "no TLS any more", [](TestConnection &connection) { connection.sendPlain("HTTP/1.1 200 OK\r\n\r\n"); },
      0, anyError);
  expectOf(
      "what is not HTTP",
      [](TestConnection &connection) { connection.send("220 mail.example ESMTP\r\n\r\n"); }, 0, anyError);
  expectNothingLeft();
}

}  // namespace
}  // namespace kx
