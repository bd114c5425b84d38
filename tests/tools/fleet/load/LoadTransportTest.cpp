#include <unistd.h>

#include <filesystem>
#include <iterator>

#include "tests/platform/linux/https/FullListener.h"
#include "tests/tools/fleet/load/LoadFixture.h"
#include "tools/fleet/LoadTransport.h"

namespace kx::fleet {
namespace {

using Connection = LoadOutcome::Connection;

class LoadTransportTest : public LoadTest {
 protected:
  LoadTransportTest() { limits.linger = std::chrono::hours(1); }

  LoadTransport &transport() {
    if (transport_ == nullptr)
      transport_ = std::make_unique<LoadTransport>(std::vector{LoadService::of(url)}, authorityFile, limits);
    return *transport_;
  }
  bool send(std::uint32_t device, std::uint8_t process = 1) {
    LoadRequest request{URLRequest(URL{url + "/"}), Data{'{', '}'}};
    request.head.HTTPMethod = "POST";
    return transport().send(device, process, std::move(request),
                            [this](const LoadOutcome &outcome) { outcomes.push_back(outcome); });
  }
  bool turnUntil(const std::function<bool()> &condition) {
    return eventually([&] {
      transport().turn(std::chrono::milliseconds(1));
      return condition();
    });
  }
  bool waitFor(std::size_t count) {
    return turnUntil([this, count] { return outcomes.size() >= count; });
  }
  LoadOutcome sendAndWait(std::uint32_t device, std::uint8_t process = 1) {
    const std::size_t before = outcomes.size();
    EXPECT_TRUE(send(device, process));
    EXPECT_TRUE(waitFor(before + 1));
    return outcomes.size() > before ? outcomes.back() : LoadOutcome();
  }
  static long statusOf(const LoadOutcome &outcome) {
    const auto answer = std::dynamic_pointer_cast<HTTPURLResponse>(outcome.response);
    return answer == nullptr ? 0 : answer->statusCode();
  }
  static std::size_t openFiles() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                                  std::filesystem::directory_iterator()));
  }

  std::string url = service();
  LoadTransport::Limits limits;
  std::vector<LoadOutcome> outcomes;

 private:
  std::unique_ptr<LoadTransport> transport_;
};

TEST_F(LoadTransportTest, HasADevicesRequestsShareItsConnection) {
  const LoadOutcome first = sendAndWait(1);
  EXPECT_EQ(statusOf(first), 200);
  EXPECT_EQ(first.connection, Connection::opened);
  const LoadOutcome second = sendAndWait(1);
  EXPECT_EQ(statusOf(second), 200);
  EXPECT_EQ(second.connection, Connection::reused);
  EXPECT_EQ(server.connections(), 1);
}

TEST_F(LoadTransportTest, HasNoTwoDevicesShareAnything) {
  sendAndWait(1);
  const LoadOutcome other = sendAndWait(2);
  EXPECT_EQ(other.connection, Connection::opened);
  EXPECT_EQ(server.connections(), 2);
  EXPECT_EQ(server.resumedHandshakes(), 0);
}

TEST_F(LoadTransportTest, ClosesAConnectionAfterTheLingerAndKeepsItsSession) {
  limits.linger = std::chrono::milliseconds(0);
  sendAndWait(1);
  EXPECT_TRUE(turnUntil([this] { return server.isIdle(); })) << "the server sees the end of it";
  EXPECT_EQ(transport().connected(), 0U);
  const LoadOutcome second = sendAndWait(1);
  EXPECT_EQ(second.connection, Connection::resumed);
  EXPECT_EQ(server.resumedHandshakes(), 1);
}

TEST_F(LoadTransportTest, GivesANewProcessNeitherConnectionNorSession) {
  sendAndWait(1, 1);
  const LoadOutcome second = sendAndWait(1, 2);
  EXPECT_EQ(second.connection, Connection::opened);
  EXPECT_EQ(server.connections(), 2);
  EXPECT_EQ(server.resumedHandshakes(), 0);
  EXPECT_EQ(transport().connected(), 1U);
}

TEST_F(LoadTransportTest, LetsTheRequestsOfAnEndedProcessEnd) {
  ASSERT_TRUE(send(1, 1));
  ASSERT_TRUE(send(1, 2));
  EXPECT_EQ(transport().openRequests(), 2U);
  ASSERT_TRUE(waitFor(2));
  EXPECT_EQ(statusOf(outcomes[0]) + statusOf(outcomes[1]), 400);
  EXPECT_EQ(transport().openRequests(), 0U);
  EXPECT_EQ(transport().connected(), 1U);
}

TEST_F(LoadTransportTest, ForgetsTheOldestSessionsWhereThereAreTooMany) {
  limits.linger = std::chrono::milliseconds(0);
  limits.sessions = 1;
  sendAndWait(1);
  EXPECT_TRUE(turnUntil([this] { return transport().connected() == 0; }));
  sendAndWait(2);
  EXPECT_TRUE(turnUntil([this] { return transport().connected() == 0; }));
  transport().turn(std::chrono::milliseconds(0));
  EXPECT_EQ(sendAndWait(2).connection, Connection::resumed);
  EXPECT_EQ(sendAndWait(1).connection, Connection::opened);
}

TEST_F(LoadTransportTest, DropsAConnectionThatTheServerCloses) {
  server.addScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.answer(200);
    connection.close();
  });
  sendAndWait(1);
  EXPECT_TRUE(turnUntil([this] { return transport().connected() == 0; }));
  EXPECT_EQ(statusOf(sendAndWait(1)), 200);
}

TEST_F(LoadTransportTest, TellsHowItFailed) {
  server.addScript([](TestConnection &connection) { connection.close(); });
  EXPECT_EQ(sendAndWait(1).problem, "TLS");
  server.addScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.close();
  });
  EXPECT_EQ(sendAndWait(2).problem, "closed");
  server.addScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.answer(503);
  });
  const LoadOutcome refused = sendAndWait(3);
  EXPECT_EQ(statusOf(refused), 503);
  EXPECT_EQ(refused.problem, "");
}

TEST_F(LoadTransportTest, TellsThatNobodyListens) {
  {
    const TestServer gone(certificate());
    url = "https://127.0.0.1:" + std::to_string(gone.port());
  }
  EXPECT_EQ(sendAndWait(1).problem, "refused");
}

TEST_F(LoadTransportTest, TellsThatTheServerIsNotTrusted) {
  const collector::CertificateAuthority other("Another authority");
  const auto now = std::chrono::system_clock::now();
  const TestServer stranger(
      other.issue({"localhost"}, now - std::chrono::hours(1), now + std::chrono::hours(1)));
  url = "https://localhost:" + std::to_string(stranger.port());
  EXPECT_EQ(sendAndWait(1).problem, "TLS");
  EXPECT_TRUE(stranger.requests().empty());
}

TEST_F(LoadTransportTest, ConnectsToNothingButItsServices) {
  const TestServer elsewhere(certificate(), [] {
    TestServer::Options options;
    options.address = "127.0.0.2";
    return options;
  }());
  server.setScript([&elsewhere](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.answer(307, "Location: https://127.0.0.2:" + std::to_string(elsewhere.port()) + "/\r\n");
  });
  EXPECT_EQ(sendAndWait(1).problem, "an address that is none of the service's");
  EXPECT_EQ(elsewhere.connections(), 0);
}

TEST_F(LoadTransportTest, HasNoMoreConnectionsThanItMay) {
  limits.connections = 2;
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.stall();
  });
  EXPECT_TRUE(send(1));
  EXPECT_TRUE(send(2));
  EXPECT_FALSE(send(3));
  EXPECT_TRUE(send(2)) << "it is connected";
  EXPECT_EQ(transport().openRequests(), 3U);
  transport().endAll();
  ASSERT_EQ(outcomes.size(), 3U);
  EXPECT_EQ(outcomes[0].problem, "no answer by the end");
  EXPECT_EQ(transport().openRequests(), 0U);
}

TEST_F(LoadTransportTest, GivesUpAConnectionThatNobodyUsesForOneThatIsNeeded) {
  limits.connections = 2;
  for (std::uint32_t device = 1; device <= 6; ++device) EXPECT_EQ(statusOf(sendAndWait(device)), 200);
  EXPECT_EQ(transport().connected(), 2U);
  EXPECT_EQ(transport().mostConnected(), 2U);
  EXPECT_EQ(sendAndWait(6).connection, Connection::reused);
  EXPECT_EQ(sendAndWait(1).connection, Connection::resumed);
}

TEST_F(LoadTransportTest, TakesNoMoreDescriptorsThanItSays) {
  sendAndWait(0);
  const std::size_t before = openFiles();
  constexpr std::uint32_t more = 10;
  for (std::uint32_t device = 1; device <= more; ++device) sendAndWait(device);
  // The server is in this process, and has one for each as well.
  EXPECT_LE(openFiles() - before, more * (LoadTransport::descriptorsPerConnection + 1));
}

TEST_F(LoadTransportTest, WaitsForNobodyWhoDoesNotEvenAccept) {
  const FullListener full;
  url = full.url().substr(0, full.url().size() - 1);
  EXPECT_TRUE(send(1));
  for (int i = 0; i < 50; ++i) transport().turn(std::chrono::milliseconds(1));
  EXPECT_TRUE(outcomes.empty());
  transport().endAll();
  EXPECT_EQ(outcomes.size(), 1U);
}

}  // namespace
}  // namespace kx::fleet
