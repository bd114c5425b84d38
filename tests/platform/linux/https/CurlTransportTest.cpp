#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/platform/linux/https/HTTPSTest.h"
#include "tests/platform/linux/https/InterposedCalls.h"

namespace kx {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::HasSubstr;
using ::testing::Lt;
using ::testing::Not;
using ::testing::StartsWith;

/// The thread that requests run on, its connections and its sleep.
class CurlTransportTest : public HTTPSTest {
 protected:
  static bool noThread() { return threadsNamed("kx-transport") == 0; }

  /// A line of the transport thread's status, "SigBlk" for one.
  static std::string threadStatus(const std::string &key) {
    for (const auto &thread : fs::directory_iterator("/proc/self/task")) {
      std::string name;
      std::getline(std::ifstream(thread.path() / "comm"), name);
      if (name != "kx-transport") continue;
      std::ifstream status(thread.path() / "status");
      for (std::string line; std::getline(status, line);) {
        if (line.compare(0, key.size() + 1, key + ':') == 0) return line.substr(line.find('\t') + 1);
      }
    }
    return "";
  }

  /// Serves requests on one connection, but tells its client that it is the last each time.
  static void serveOnce(TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.answer(200, "Connection: close\r\n");
    connection.close();
  }
};

TEST_F(CurlTransportTest, RunsManyRequestsAtOnceOnOneThread) {
  constexpr std::size_t count = 100;
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t arrived = 0;
  server.setScript([&](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    {
      // Nobody is answered before all are there.
      std::unique_lock<std::mutex> lock(mutex);
      ++arrived;
      changed.notify_all();
      changed.wait(lock, [&] { return arrived == count; });
    }
    connection.answer(200);
    connection.stall();
  });
  for (std::size_t i = 0; i < count; ++i) task(request(server.url("/" + std::to_string(i))))->resume();
  EXPECT_TRUE(eventually([&] {
    const std::lock_guard<std::mutex> lock(mutex);
    return arrived == count;
  }));
  EXPECT_EQ(threadsNamed("kx-transport"), 1);
  for (const auto &outcome : waitForOutcomes(count)) EXPECT_EQ(outcome.status(), 200) << outcome.errorText();
}

TEST_F(CurlTransportTest, TakesRequestsFromManyThreads) {
  settings.linger = milliseconds(0);
  service();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] {
      for (int j = 0; j < 25; ++j) task(request(server.url()))->resume();
    });
  }
  for (auto &thread : threads) thread.join();
  for (const auto &outcome : waitForOutcomes(100)) EXPECT_EQ(outcome.status(), 200) << outcome.errorText();
  EXPECT_TRUE(eventually(&noThread));
}

TEST_F(CurlTransportTest, ReusesAConnectionWithinTheLinger) {
  EXPECT_EQ(CurlSettings().linger, seconds(6));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_EQ(server.connections(), 1);
}

TEST_F(CurlTransportTest, EndsItsThreadAfterTheLingerAndMakesAnotherForTheNextRequest) {
  settings.linger = milliseconds(200);
  for (int i = 1; i <= 3; ++i) {
    EXPECT_EQ(post(server.url()).status(), 200);
    EXPECT_TRUE(eventually(&noThread));
    EXPECT_EQ(server.connections(), i);
  }
}

TEST_F(CurlTransportTest, LosesNoRequestThatComesWhileTheThreadEnds) {
  settings.linger = milliseconds(1);
  for (int i = 0; i < 200; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(i * 20));
    ASSERT_EQ(post(server.url()).status(), 200);
  }
}

TEST_F(CurlTransportTest, ResumesTLSSessionsOnNewConnections) {
  server.setScript(&serveOnce);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_EQ(server.handshakes(), 3);
  EXPECT_EQ(server.resumedHandshakes(), 2);
}

TEST_F(CurlTransportTest, SendsOnANewConnectionWhenTheOldOneHasBeenClosed) {
  server.addScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.answer(200);
    connection.readRequest();
    connection.reset();
  });
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_EQ(server.connections(), 2);
}

TEST_F(CurlTransportTest, SleepsWhileItWaits) {
  settings.linger = seconds(2);
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    std::this_thread::sleep_for(seconds(2));
    connection.answer(200);
    connection.stall();
  });
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_TRUE(eventually(&noThread));
  // Some for the handshake, one for the answer, and one for the linger.
  EXPECT_THAT(InterposedCalls::polls(), Lt(25));
}

TEST_F(CurlTransportTest, SleepsWhileNothingProgresses) {
  settings.timeoutWithoutProgress = seconds(2);
  settings.linger = milliseconds(0);
  server.setScript([](TestConnection &connection) { connection.stall(); });
  EXPECT_TRUE(post(server.url()).error);
  EXPECT_TRUE(eventually(&noThread));
  EXPECT_THAT(InterposedCalls::polls(), Lt(20));
}

TEST_F(CurlTransportTest, BlocksSignalsOnItsThreadButThoseOfFaults) {
  post(server.url());
  const auto blocked = std::stoull(threadStatus("SigBlk"), nullptr, 16);
  const auto isBlocked = [blocked](int signal) { return ((blocked >> (signal - 1)) & 1) == 1; };
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM, SIGCHLD, SIGUSR1, SIGUSR2, SIGPIPE, SIGPROF}) {
    EXPECT_TRUE(isBlocked(signal)) << signal;
  }
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) EXPECT_FALSE(isBlocked(signal)) << signal;
  sigset_t own;
  pthread_sigmask(SIG_BLOCK, nullptr, &own);
  EXPECT_EQ(sigismember(&own, SIGTERM), 0);
}

TEST_F(CurlTransportTest, ReportsThatThereCanBeNoThread) {
  settings.threadStackSize = std::size_t{1} << 50;
  const auto outcome = post(server.url());
  ASSERT_TRUE(outcome.error);
  EXPECT_EQ(outcome.error->domain, "POSIX");
  EXPECT_EQ(outcome.thread, dispatch.workerThread());
  EXPECT_TRUE(post(server.url()).error);
}

TEST_F(CurlTransportTest, ReportsThatCurlHasNoResourcesAndGoesOnWhenItHas) {
  InterposedCalls::setExhausted(true);
  const auto outcome = post(server.url());
  EXPECT_EQ(outcome.errorText(), "curl has run out of memory or file descriptors");
  EXPECT_TRUE(eventually(&noThread));
  InterposedCalls::setExhausted(false);
  EXPECT_EQ(post(server.url()).status(), 200);
}

TEST_F(CurlTransportTest, HandsNoSocketDownToProgramsThatTheHostStarts) {
  post(server.url());
  int sockets = 0;
  for (const auto &entry : fs::directory_iterator("/proc/self/fd")) {
    const int descriptor = std::stoi(entry.path().filename());
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    if (getpeername(descriptor, reinterpret_cast<sockaddr *>(&peer), &size) != 0) continue;
    if (peer.sin_family != AF_INET || ntohs(peer.sin_port) != server.port()) continue;
    ++sockets;
    EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
  }
  EXPECT_EQ(sockets, 1);
}

TEST_F(CurlTransportTest, GoesThroughTheProxyOfTheEnvironment) {
  std::string url;
  {
    TestServer closed(certificate());
    url = closed.url();
  }
  unsetenv("no_proxy");
  setenv("https_proxy", url.replace(0, 5, "http").c_str(), 1);
  EXPECT_EQ(post("https://nowhere.invalid/").errorCode(), 7);
  setenv("no_proxy", "localhost", 1);
  EXPECT_EQ(post(server.url()).status(), 200);
}

TEST_F(CurlTransportTest, TellsAProxyNothingOfTheRequestAndTakesNothingFromIt) {
  unsetenv("no_proxy");
  setenv("https_proxy", server.url().replace(0, 5, "http").c_str(), 1);
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
