#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <deque>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "platform/linux/bus/FileDescriptor.h"
#include "platform/linux/threads/ForkedChild.h"
#include "platform/linux/threads/LinuxWorkerPool.h"
#include "tests/platform/linux/https/FullListener.h"
#include "tests/platform/linux/https/HTTPSTest.h"
#include "tests/platform/linux/https/InterposedCalls.h"
#include "tests/support/InForkedChild.h"

namespace kx {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::Lt;

/// The thread that requests run on, its connections and its sleep.
class CurlTransportTest : public HTTPSTest {
 protected:
  static constexpr const char *outOfResources = "curl has run out of memory or file descriptors";

  static bool noThread() { return threadsNamed("kx-transport") == 0; }

  /// Has curl close a socket without a word.
  void failToConnect() {
    settings.timeoutWithoutProgress = seconds(1);
    const FullListener listener;
    EXPECT_EQ(post(listener.url()).errorCode(), timedOut);
  }

  /// Of the transport's thread.
  static int niceValue() {
    for (const auto &thread : fs::directory_iterator("/proc/self/task")) {
      std::string name;
      std::getline(std::ifstream(thread.path() / "comm"), name);
      if (name != "kx-transport") continue;
      return getpriority(PRIO_PROCESS, static_cast<id_t>(std::stoul(thread.path().filename())));
    }
    return -100;
  }

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

TEST_F(CurlTransportTest, TheLingerBeginsWithTheEndOfARequest) {
  settings.linger = seconds(2);
  server.setScript([this](TestConnection &connection) {
    connection.handshake();
    while (true) {
      connection.readRequest();
      std::this_thread::sleep_for(settings.linger + milliseconds(100));
      connection.answer(200);
    }
  });
  for (int i = 0; i < 2; ++i) EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_EQ(server.connections(), 1);
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

TEST_F(CurlTransportTest, ResumesTLSSessionsAfterItsThreadHasEnded) {
  settings.linger = milliseconds(0);
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    TestServer::Options options;
    options.minimumVersion = version;
    options.maximumVersion = version;
    TestServer other(certificate(), options);
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(post(other.url()).status(), 200);
      EXPECT_TRUE(eventually(&noThread));
    }
    EXPECT_EQ(other.handshakes(), 3);
    EXPECT_EQ(other.resumedHandshakes(), 2);
  }
}

TEST_F(CurlTransportTest, EndsItsThreadWhenTheServerClosesTheLastConnection) {
  settings.linger = seconds(60);
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.answer(200);
    std::this_thread::sleep_for(milliseconds(100));
    connection.close();
  });
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_TRUE(eventually(&noThread));
}

TEST_F(CurlTransportTest, HasThePriorityOfTheProcessWhoeverSends) {
  static auto &pool = *new LinuxWorkerPool;
  const int own = getpriority(PRIO_PROCESS, 0);
  const auto first = task(request(server.url()));
  pool.submit(DispatchQueuePriority::background, [first] { first->resume(); });
  EXPECT_EQ(waitForOutcomes(1).front().status(), 200);
  EXPECT_EQ(niceValue(), own);
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

TEST_F(CurlTransportTest, SleepsThoughAConnectionThatIsKeptSaysSomethingUnasked) {
  settings.linger = milliseconds(0);
  std::atomic<bool> othersRun{false};
  server.addScript([&](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    while (!othersRun) std::this_thread::sleep_for(milliseconds(1));
    connection.answer(200);
    std::this_thread::sleep_for(milliseconds(100));
    connection.send("unasked");
    connection.stall();
  });
  server.addScript([&](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    othersRun = true;
    std::this_thread::sleep_for(seconds(2));
    connection.answer(200);
  });
  for (int i = 0; i < 2; ++i) task(request(server.url()))->resume();
  for (const auto &outcome : waitForOutcomes(2)) EXPECT_EQ(outcome.status(), 200);
  EXPECT_TRUE(eventually(&noThread));
  EXPECT_THAT(InterposedCalls::polls(), Lt(50));
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

TEST_F(CurlTransportTest, ReportsItAllTheSameWhereThereIsNoMemoryForTheQueue) {
  settings.threadStackSize = std::size_t{1} << 50;
  dispatch.exhaustMemory();
  EXPECT_TRUE(post(server.url()).error);
  EXPECT_EQ(outcomes().size(), 1U);
}

TEST_F(CurlTransportTest, ReportsThatCurlHasNoResourcesAndGoesOnWhenItHas) {
  InterposedCalls::setExhausted(true);
  const auto outcome = post(server.url());
  EXPECT_EQ(outcome.errorText(), outOfResources);
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

TEST_F(CurlTransportTest, HandsNothingDownOfWhatWakesIt) {
  const auto inheritedSockets = [] {
    std::set<int> found;
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) {
      const int descriptor = std::stoi(entry.path().filename());
      int domain = 0;
      socklen_t size = sizeof domain;
      if (getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0 || domain != AF_UNIX) continue;
      if ((fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0) found.insert(descriptor);
    }
    return found;
  };
  // However many files the host has open. Of its own, whatever goes on in them, nothing is changed.
  std::deque<FileDescriptor> hosts;
  for (int i = 0; i < 64; ++i) hosts.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  std::array<int, 2> idle{};
  std::array<int, 2> busy{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, idle.data()), 0);
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, busy.data()), 0);
  ASSERT_EQ(write(busy[0], "x", 1), 1);
  const auto before = inheritedSockets();
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_EQ(threadsNamed("kx-transport"), 1);
  EXPECT_EQ(inheritedSockets(), before);
  for (const int socket : {idle[0], idle[1], busy[0], busy[1]}) close(socket);
}

TEST_F(CurlTransportTest, FailsWhatIsInFlightWhenCurlCannotGoOn) {
  server.setScript([](TestConnection &connection) { connection.stall(); });
  task(request(server.url()))->resume();
  EXPECT_TRUE(eventually([this] { return server.connections() == 1; }));
  InterposedCalls::setExhausted(true);
  task(request(server.url()))->resume();
  for (const auto &outcome : waitForOutcomes(2)) EXPECT_EQ(outcome.errorText(), outOfResources);
  InterposedCalls::setExhausted(false);
}

TEST_F(CurlTransportTest, StaysAwakeForTheNextRequestThoughAConnectionDidNotComeAbout) {
  settings.linger = seconds(60);
  failToConnect();
  std::this_thread::sleep_for(milliseconds(200));
  EXPECT_EQ(threadsNamed("kx-transport"), 1);
}

TEST_F(CurlTransportTest, LeavesChildrenWhatHasGotTheNumberOfAConnectionThatDidNotComeAbout) {
  ForkedChild::expect();
  settings.linger = milliseconds(0);
  failToConnect();
  EXPECT_TRUE(eventually(&noThread));
  std::deque<FileDescriptor> hosts;
  for (int i = 0; i < 64; ++i) hosts.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(
      inForkedChild([&hosts] {
        return static_cast<int>(std::count_if(hosts.begin(), hosts.end(), [](const FileDescriptor &file) {
          struct stat status {};
          return fstat(file.number(), &status) == 0 && S_ISCHR(status.st_mode);
        }));
      }),
      64);
}

TEST_F(CurlTransportTest, LeavesItsConnectionsToTheProcessThatMadeThem) {
  ForkedChild::expect();
  settings.linger = seconds(60);
  EXPECT_EQ(post(server.url()).status(), 200);
  const auto connections = [this] {
    int count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
      sockaddr_in peer{};
      socklen_t size = sizeof peer;
      const bool isConnected = getpeername(descriptor, reinterpret_cast<sockaddr *>(&peer), &size) == 0;
      if (isConnected && peer.sin_family == AF_INET && ntohs(peer.sin_port) == server.port()) ++count;
    }
    return count;
  };
  EXPECT_EQ(inForkedChild(connections), 0);
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_EQ(server.connections(), 1);
}

TEST_F(CurlTransportTest, HoldsWhatARequestIsGivenUntilItHasEnded) {
  std::atomic<bool> go{false};
  server.setScript([&go](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    while (!go) std::this_thread::sleep_for(milliseconds(1));
    connection.answer(200);
  });
  const auto held = std::make_shared<int>();
  settings.heldByRequest = [&held] { return held; };
  const auto holders = [&held] { return held.use_count() - 1; };
  for (int i = 0; i < 6; ++i) task(request(server.url()))->resume();  // of which two wait
  EXPECT_EQ(holders(), 6);
  EXPECT_TRUE(eventually([this] { return server.requests().size() == 4; }));
  EXPECT_EQ(holders(), 6);
  go = true;
  waitForOutcomes(6);
  EXPECT_TRUE(eventually([&] { return holders() == 0; }));
  post("https://nobody.invalid/");
  EXPECT_TRUE(eventually([&] { return holders() == 0; }));
}

}  // namespace
}  // namespace kx
