#include <sys/socket.h>

#include "tests/platform/linux/https/HTTPSTest.h"
#include "tests/platform/linux/https/InterposedCalls.h"
#include "tests/platform/linux/https/UnansweredAddress.h"

namespace kx {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::AllOf;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::Lt;
using ::testing::Not;

/// Requests that come to nothing.
class CurlFailureTest : public HTTPSTest {
 protected:
  /// The first bytes of a TLS record that announces more than comes.
  static constexpr std::string_view partOfRecord{"\x16\x03\x03\x00\x7a\x02\x00", 7};

  void expectTimeout(const Outcome &outcome) {
    EXPECT_EQ(outcome.errorCode(), timedOut) << outcome.errorText();
    // The upper bound is for machines that are busy with other things.
    EXPECT_THAT(outcome.duration, AllOf(Ge(settings.timeoutWithoutProgress - milliseconds(5)),
                                        Lt(settings.timeoutWithoutProgress + seconds(15))));
  }
};

TEST_F(CurlFailureTest, GivesUpAfterSixtySecondsWithoutProgress) {
  EXPECT_EQ(CurlSettings().timeoutWithoutProgress, seconds(60));
}

TEST_F(CurlFailureTest, GivesUpEachRequestAtItsOwnTime) {
  settings.timeoutWithoutProgress = seconds(4);
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.stall();
  });
  task(request(server.url()))->resume();
  std::this_thread::sleep_for(seconds(3));
  task(request(server.url()))->resume();
  for (const auto &outcome : waitForOutcomes(2)) {
    expectTimeout(outcome);
    EXPECT_LT(outcome.duration, milliseconds(6500)) << "it has waited for the later one";
  }
}

TEST_F(CurlFailureTest, ReportsConnectionsThatAreDroppedAtAnyStage) {
  const std::vector<TestServer::Script> scripts = {
      [](TestConnection &) {},
      [](TestConnection &connection) { connection.reset(); },
      [](TestConnection &connection) { connection.readAtLeast(100); },
      [](TestConnection &connection) {
        connection.readAtLeast(100);
        connection.send(partOfRecord);
      },
      [](TestConnection &connection) { connection.handshake(); },
      [](TestConnection &connection) {
        connection.handshake();
        connection.close();
      },
      [](TestConnection &connection) {
        connection.handshake();
        connection.readRequest();
      },
      [](TestConnection &connection) {
        connection.handshake();
        connection.readRequest();
        connection.close();
      },
      [](TestConnection &connection) {
        connection.handshake();
        connection.readRequest();
        connection.reset();
      },
      [](TestConnection &connection) {
        connection.handshake();
        connection.readRequest();
        connection.send("HTTP/1.1 200 OK\r\nSet-Author");
        connection.close();
      },
  };
  for (std::size_t i = 0; i < scripts.size(); ++i) {
    server.addScript(scripts[i]);
    const auto outcome = post(server.url("/?secret=1"));
    ASSERT_TRUE(outcome.error) << i;
    EXPECT_EQ(outcome.error->domain, "libcurl");
    EXPECT_NE(outcome.error->code, 0);
    EXPECT_NE(outcome.errorText(), "");
    EXPECT_THAT(outcome.errorText(), Not(HasSubstr("secret")));
  }
  EXPECT_EQ(server.connections(), static_cast<int>(scripts.size()));
}

TEST_F(CurlFailureTest, ReportsServersThatDoNotSpeakTLS) {
  server.setScript([](TestConnection &connection) {
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    connection.stall();
  });
  EXPECT_TRUE(post(server.url()).error);
}

TEST_F(CurlFailureTest, EndsRequestsThatStallAtAnyStage) {
  settings.timeoutWithoutProgress = seconds(1);
  const std::vector<TestServer::Script> scripts = {
      [](TestConnection &connection) { connection.stall(); },
      [](TestConnection &connection) {
        connection.readAtLeast(100);
        connection.send(partOfRecord);
        connection.stall();
      },
      [](TestConnection &connection) {
        connection.handshake();
        connection.stall();
      },
      [](TestConnection &connection) {
        connection.handshake();
        connection.readRequest();
        connection.send("HTTP/1.1 100 Continue\r\n\r\n");
        connection.stall();
      },
      [](TestConnection &connection) {
        connection.handshake();
        connection.readRequest();
        connection.send("HTTP/1.1 200 OK\r\nSet-Author");
        connection.stall();
      },
  };
  for (const auto &script : scripts) {
    server.addScript(script);
    task(request(server.url()))->resume();
  }
  for (const auto &outcome : waitForOutcomes(scripts.size())) expectTimeout(outcome);
}

TEST_F(CurlFailureTest, EndsRequestsWhoseConnectionIsNotTaken) {
  settings.timeoutWithoutProgress = seconds(1);
  const UnansweredAddress address;
  expectTimeout(post(address.url()));
}

TEST_F(CurlFailureTest, EndsRequestsWhoseHostIsNotResolvedAndKeepsNobodyWaiting) {
  settings.timeoutWithoutProgress = seconds(1);
  task(request("https://stalled.invalid/"))->resume();
  ASSERT_TRUE(eventually([] { return InterposedCalls::stalledResolutions() == 1; }));
  EXPECT_EQ(post(server.url()).status(), 200);
  expectTimeout(waitForOutcomes(2).back());
  EXPECT_EQ(post(server.url()).status(), 200);
}

TEST_F(CurlFailureTest, EndsUploadsThatStall) {
  settings.timeoutWithoutProgress = seconds(1);
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readAtLeast(1000);
    std::this_thread::sleep_for(seconds(3));
    connection.stall();
  });
  EXPECT_EQ(send(request(server.url()), Data(30 * 1024 * 1024)).errorCode(), timedOut);
}

TEST_F(CurlFailureTest, WaitsForAnswersThatTrickle) {
  settings.timeoutWithoutProgress = seconds(2);
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    for (const char byte : std::string_view("HTTP/1.1 200 OK\r\n\r\n")) {
      connection.send({&byte, 1});
      std::this_thread::sleep_for(milliseconds(200));
    }
    connection.close();
  });
  const auto outcome = post(server.url());
  EXPECT_EQ(outcome.status(), 200);
  EXPECT_THAT(outcome.duration, Ge(seconds(3)));
}

TEST_F(CurlFailureTest, WaitsForUploadsThatTrickle) {
  settings.timeoutWithoutProgress = seconds(2);
  constexpr std::size_t size = 30 * 1024 * 1024;
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    for (int i = 0; i < 15; ++i) {
      connection.readAtLeast(size / 20);
      std::this_thread::sleep_for(milliseconds(250));
    }
    connection.readAtLeast(size / 20 * 4);
    connection.answer(200);
    connection.stall();  // which reads the rest
  });
  const auto outcome = send(request(server.url()), Data(size));
  EXPECT_EQ(outcome.status(), 200) << outcome.errorText();
  EXPECT_THAT(outcome.duration, Ge(seconds(3)));
}

TEST_F(CurlFailureTest, ReportsRefusedConnections) {
  std::string url;
  {
    TestServer closed(certificate());
    url = closed.url();
  }
  EXPECT_EQ(post(url).errorCode(), couldNotConnect);
}

TEST_F(CurlFailureTest, ReportsHostsThatDoNotExist) {
  const auto outcome = post("https://nowhere.invalid/path?query");
  EXPECT_EQ(outcome.errorCode(), couldNotResolve);
  EXPECT_EQ(outcome.errorText(), "Could not resolve host: nowhere.invalid");
}

}  // namespace
}  // namespace kx
