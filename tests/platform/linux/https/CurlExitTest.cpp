#include <array>
#include <condition_variable>
#include <csignal>
#include <fstream>
#include <functional>
#include <iomanip>
#include <memory>
#include <mutex>
#include <sstream>
#include <utility>

#include "tests/platform/linux/https/HTTPSTest.h"
#include "tests/platform/linux/https/UnansweredAddress.h"
#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

using std::chrono::seconds;

/// Hosts that end while a request is on its way. They are processes of their own.
class CurlExitTest : public HTTPSTest {
 protected:
  static constexpr std::array<const char *, 4> ways{"return", "exit", "exit-elsewhere", "_exit"};
  static constexpr const char *usualLinger = "6000";

  std::unique_ptr<ChildProcess> start(const std::string &url, const char *linger, const std::string &when,
                                      const char *how) const {
    return std::make_unique<ChildProcess>(std::vector<std::string>{
        programBeside("exiting-host"), url, *settings.certificateAuthorityFile, linger, when, how});
  }

  /// Waits for the host's end, which has to be an orderly one.
  static void expectEnd(std::unique_ptr<ChildProcess> host) {
    EXPECT_EQ(host->exitCode(), 7) << host->errors();
  }

  /// Ends hosts in every way, some times each, when the server's script has said that it is time.
  void endWhenTold(const std::function<void(TestConnection &, const std::function<void()> &)> &script) {
    for (const char *how : ways) {
      for (int i = 0; i < 5; ++i) {
        std::mutex mutex;
        std::condition_variable changed;
        bool isTime = false;
        server.addScript([&](TestConnection &connection) {
          script(connection, [&] {
            const std::lock_guard<std::mutex> lock(mutex);
            isTime = true;
            changed.notify_all();
          });
        });
        auto host = start(server.url(), usualLinger, "told", how);
        {
          std::unique_lock<std::mutex> lock(mutex);
          EXPECT_TRUE(changed.wait_for(lock, seconds(45), [&isTime] { return isTime; }));
        }
        host->write("x");
        expectEnd(std::move(host));
      }
    }
  }

  /// Ends a host that has the whole library, and a service that takes its messages.
  void endLibrary(const std::string &when, const std::string &how) {
    server.setScript([](TestConnection &connection) {
      connection.handshake();
      while (true) {
        connection.readRequest();
        connection.answer(200, "Set-Authorization: a token\r\n");
      }
    });
    ChildProcess host({programBeside("exiting-library"), "localhost:" + std::to_string(server.port()),
                       *settings.certificateAuthorityFile, when, how},
                      {"DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent"});
    EXPECT_EQ(host.exitCode(), how == "signal" ? -SIGTERM : 7)
        << how << ", " << when << ": " << host.errors();
  }

  /// Whether a connection to that port of the loopback interface is being made.
  static bool isConnecting(unsigned port) {
    std::ostringstream remote;
    remote << " 0100007F:" << std::uppercase << std::hex << std::setw(4) << std::setfill('0') << port
           << " 02 ";
    std::ifstream table("/proc/net/tcp");
    for (std::string line; std::getline(table, line);) {
      if (line.find(remote.str()) != std::string::npos) return true;
    }
    return false;
  }
};

TEST_F(CurlExitTest, IsOrderlyAtAnyMomentOfTheStart) {
  for (int i = 0; i < 60; ++i) {
    const std::string delay =
        std::to_string(i * 50);  // microseconds; the first handshake is over after some 2000
    expectEnd(start(server.url(), usualLinger, delay, i % 2 == 0 ? "return" : "exit-elsewhere"));
  }
}

TEST_F(CurlExitTest, IsOrderlyAtAnyMomentOfTheInitialisation) {
  for (int i = 0; i < 60; ++i) {
    const std::string when = "initialising+" + std::to_string(i * 50);
    expectEnd(start(server.url(), usualLinger, when, i % 2 == 0 ? "return" : "exit-elsewhere"));
  }
}

TEST_F(CurlExitTest, IsOrderlyWhileTheHostNameIsLookedUp) {
  for (const char *how : ways) {
    for (int i = 0; i < 5; ++i) expectEnd(start("https://stalled.invalid/", usualLinger, "resolving", how));
  }
}

TEST_F(CurlExitTest, IsOrderlyWhileAConnectionIsMade) {
  for (const char *how : ways) {
    for (int i = 0; i < 5; ++i) {
      const UnansweredAddress address;
      auto host = start(address.url(), usualLinger, "told", how);
      EXPECT_TRUE(eventually([&address] { return isConnecting(address.port()); }));
      host->write("x");
      expectEnd(std::move(host));
    }
  }
}

TEST_F(CurlExitTest, IsOrderlyDuringTheHandshake) {
  endWhenTold([](TestConnection &connection, const std::function<void()> &itIsTime) {
    connection.readAtLeast(100);
    itIsTime();
    connection.stall();
  });
}

TEST_F(CurlExitTest, IsOrderlyWhileTheAnswerIsAwaited) {
  endWhenTold([](TestConnection &connection, const std::function<void()> &itIsTime) {
    connection.handshake();
    connection.readRequest();
    itIsTime();
    connection.stall();
  });
}

TEST_F(CurlExitTest, IsOrderlyWhileAHeaderComes) {
  endWhenTold([](TestConnection &connection, const std::function<void()> &itIsTime) {
    connection.handshake();
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nSet-Author");
    itIsTime();
    while (true) connection.send("a");
  });
}

TEST_F(CurlExitTest, IsOrderlyWhileABodyComes) {
  endWhenTold([](TestConnection &connection, const std::function<void()> &itIsTime) {
    connection.handshake();
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n");
    itIsTime();
    connection.stall();
  });
}

TEST_F(CurlExitTest, IsOrderlyWhileTheConnectionIsKept) {
  for (const char *how : ways) {
    for (int i = 0; i < 5; ++i) expectEnd(start(server.url(), usualLinger, "answered", how));
  }
}

TEST_F(CurlExitTest, IsOrderlyAtAnyMomentOfTheThreadsEnd) {
  for (int i = 0; i < 60; ++i) {
    const std::string when = "answered+" + std::to_string(i * 10);
    expectEnd(start(server.url(), "0", when, i % 2 == 0 ? "return" : "exit-elsewhere"));
  }
}

TEST_F(CurlExitTest, TakesASecondAtTheMostWhenTheThreadHangs) {
  // exit and return wait for it, in more places than one.
  for (const char *how : ways) expectEnd(start(server.url(), usualLinger, "hanging", how));
}

TEST_F(CurlExitTest, WakesTheThreadThatItWaitsFor) {
  // One of some, since any may have waited for the processor.
  const auto endsAtOnce = [this] {
    for (int i = 0; i < 5; ++i) {
      if (start(server.url(), usualLinger, "answered", "exit-at-once")->exitCode() == 7) return true;
    }
    return false;
  };
  EXPECT_TRUE(endsAtOnce());
}

TEST_F(CurlExitTest, WaitsForAThreadThatTLSStillHasToDoWith) {
  for (const char *how : {"return", "exit-elsewhere"}) expectEnd(start(server.url(), "0", "ending", how));
}

TEST_F(CurlExitTest, DoesNotKeepAForkedChildWaiting) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.stall();
  });
  for (int i = 0; i < 5; ++i) expectEnd(start(server.url(), usualLinger, "100000", "fork"));
}

TEST_F(CurlExitTest, LeavesAForkedChildNoLockOfTLSAtAnyMoment) {
  for (int i = 0; i < 40; ++i) {
    expectEnd(start(server.url(), usualLinger, std::to_string(i * 150), "fork"));
    expectEnd(start(server.url(), usualLinger, "initialising+" + std::to_string(i * 100), "fork"));
  }
}

TEST_F(CurlExitTest, LeavesAForkedChildNoLockOfTLSAmongManyRequests) {
  server.setScript(&TestServer::serve);
  for (int i = 0; i < 5; ++i) expectEnd(start(server.url(), usualLinger, "answered", "fork-busily"));
}

TEST_F(CurlExitTest, LetsAForkThroughWhereAThreadIsAlwaysAtWork) {
  server.setScript(&TestServer::serve);
  expectEnd(start(server.url(), usualLinger, "answered", "fork-between"));
}

TEST_F(CurlExitTest, DoesNotKeepAForkWaitingForAThreadThatHasEnded) {
  for (int i = 0; i < 5; ++i) expectEnd(start(server.url(), "0", "answered+50000", "fork"));
}

TEST_F(CurlExitTest, KeepsAForkWaitingForASecondAtTheMost) {
  expectEnd(start(server.url(), usualLinger, "hanging", "fork"));
}

TEST_F(CurlExitTest, FailsRequestsThatComeDuringTheExit) {
  server.setScript(&TestServer::serve);
  for (const char *when : {"answered", "answered+20000"}) {
    expectEnd(start(server.url(), usualLinger, when, "send"));
    expectEnd(start(server.url(), "0", when, "send"));
  }
}

TEST_F(CurlExitTest, FailsARequestThatHasNoThreadWhenTheExitBegins) {
  server.setScript(&TestServer::serve);
  expectEnd(start(server.url(), "0", "answered", "send-across"));
}

TEST_F(CurlExitTest, IsOrderlyAtAnyMomentOfTheWholeLibrarysStart) {
  for (const char *how : {"return", "exit", "exit-elsewhere", "_exit", "signal", "without-loop"}) {
    for (const char *microseconds : {"0", "300", "1500", "6300", "25500"}) endLibrary(microseconds, how);
  }
}

TEST_F(CurlExitTest, IsOrderlyWhileTheWholeLibrarySends) {
  for (const char *how : {"return", "exit", "exit-elsewhere", "_exit", "signal"}) {
    for (const char *when : {"token+0", "token+500", "token+3000", "token+20000"}) endLibrary(when, how);
  }
  EXPECT_GE(server.requests().size(), 20U) << "each has logged in";
}

}  // namespace
}  // namespace kx
