// More clients than the server takes: the silent ones go, those that wait for an answer stay, and no address
// keeps the others out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <chrono>
#include <list>
#include <thread>

#include "tests/support/ChildProcess.h"
#include "tests/tools/collector/Requests.h"
#include "tests/tools/collector/ServerFixture.h"

namespace kx::collector {
namespace {

using boost::asio::ip::tcp;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr const char *here = "127.0.0.1";
constexpr const char *elsewhere = "127.0.0.2";  // it is loopback, too

class CrowdTest : public ServerTest {
 protected:
  /// Connections from that address that never say anything.
  void openSilent(int count, const char *address = here) {
    for (int number = 0; number < count; ++number) {
      silent_.emplace_back(io_, tcp::endpoint(boost::asio::ip::make_address(address), 0));
      silent_.back().connect({boost::asio::ip::address_v4::loopback(), port()});
    }
  }

  /// Well before any of them has taken too long.
  void expectThatItServesSoon() {
    const auto start = steady_clock::now();
    expectThatItServes();
    EXPECT_LT(steady_clock::now() - start, seconds(20));
  }

  static void expectAccepted(const std::optional<Response> &response) {
    ASSERT_TRUE(response);
    EXPECT_EQ(response->result_int(), 200u);
  }

 private:
  boost::asio::io_context io_;
  std::list<tcp::socket> silent_;
};

TEST_F(CrowdTest, SilentConnectionsKeepNobodyOut) {
  openSilent(300);
  expectThatItServesSoon();
  expectFailure("no TLS handshake: it was idle for longest when others needed its place");
}

TEST_F(CrowdTest, SilentConnectionsFromEverywhereKeepNobodyOut) {
  limits.maximumConnections = 4;
  limits.maximumConnectionsPerAddress = 2;
  openSilent(2);
  openSilent(2, elsewhere);
  expectThatItServesSoon();
}

TEST_F(CrowdTest, TheLongestIdleGoesFirst) {
  limits.maximumConnections = 3;
  const auto first = connect();
  const auto second = connect();
  const auto third = connect();
  expectAccepted(first->exchange(loginRequest()));
  expectAccepted(third->exchange(loginRequest()));
  const auto fourth = connect();
  expectAccepted(fourth->exchange(loginRequest()));
  second->waitForEnd();
  expectAccepted(first->exchange(loginRequest()));
  expectAccepted(third->exchange(loginRequest()));
}

TEST_F(CrowdTest, ManyConnectionsOfOneAddressCostNoOther) {
  limits.maximumConnections = 5;
  limits.maximumConnectionsPerAddress = 3;
  const auto longestIdle = connect();
  openSilent(20, elsewhere);
  expectFailure("it was idle for longest");
  expectAccepted(longestIdle->exchange(loginRequest()));
}

TEST_F(CrowdTest, WhoeverWaitsForAnAnswerKeepsTheConnection) {
  limits.maximumConnections = 1;
  settings.login.delay = milliseconds(500);
  const auto patient = connect();
  patient->write(wireText(loginRequest()));
  EXPECT_TRUE(eventually([this] { return log.answers().size() == 1; }));
  std::atomic<bool> served{false};
  std::thread next([this, &served] {
    const auto response = exchange(loginRequest());
    served = response && response->result_int() == 200;
  });
  expectAccepted(patient->read());
  next.join();
  EXPECT_TRUE(served);
}

TEST_F(CrowdTest, AnAddressWhoseConnectionsAllWaitForAnswersGetsNoMore) {
  limits.maximumConnectionsPerAddress = 1;
  settings.login.delay = milliseconds(500);
  const auto patient = connect();
  patient->write(wireText(loginRequest()));
  EXPECT_TRUE(eventually([this] { return log.answers().size() == 1; }));
  EXPECT_TRUE(connect()->error);
  expectFailure("its address has 1 connections that are waiting for answers; no more");
  expectAccepted(patient->read());
}

}  // namespace
}  // namespace kx::collector
