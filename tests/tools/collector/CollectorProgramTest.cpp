// kx-collector as a whole: how it starts, what it says first, how it ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/support/ChildProcess.h"
#include "tests/tools/collector/Requests.h"
#include "tests/tools/collector/ServerFixture.h"
#include "tools/collector/CertificateAuthority.h"
#include "tools/collector/CertificateStore.h"

namespace kx::collector {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

class CollectorProgramTest : public ::testing::Test {
 protected:
  const TemporaryDirectory temporary;

  static std::vector<std::string> command(const std::vector<std::string> &arguments) {
    std::vector<std::string> all = {KX_COLLECTOR_PROGRAM};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }

  /// On a free port, with a directory of the test's own.
  std::vector<std::string> start(std::vector<std::string> more = {}) const {
    more.insert(more.end(), {"--port", "0", "--directory", temporary.path()});
    return command(more);
  }

  static std::string firstLine(ChildProcess &collector) {
    EXPECT_TRUE(eventually([&collector] { return collector.output().find('\n') != std::string::npos; }))
        << collector.errors();
    return collector.output().substr(0, collector.output().find('\n'));
  }

  static std::uint16_t portIn(const std::string &line) {
    return static_cast<std::uint16_t>(std::stoi(line.substr(line.rfind(':', line.find(',')) + 1)));
  }

  static void expectThatItServes(std::uint16_t port, const std::string &authorityPem) {
    Client client(port, authorityPem);
    EXPECT_FALSE(client.error) << client.error.message();
    const auto response = client.exchange(loginRequest());
    ASSERT_TRUE(response);
    EXPECT_EQ(response->result_int(), 200u);
  }

  static void expectBadArguments(const std::vector<std::string> &arguments, const std::string &reason) {
    ChildProcess collector(command(arguments));
    EXPECT_EQ(collector.exitCode(), 2);
    EXPECT_THAT(collector.errors(), HasSubstr("kx-collector: "));
    EXPECT_THAT(collector.errors(), HasSubstr(reason));
    EXPECT_EQ(collector.output(), "");
  }
};

TEST_F(CollectorProgramTest, SaysFirstWhereItListensAndWhatToTrust) {
  ChildProcess collector(start());
  const std::string line = firstLine(collector);
  const std::string authorityFile = temporary.path() + "/ca.pem";
  EXPECT_THAT(line, MatchesRegex("listening on https://127\\.0\\.0\\.1:[0-9]+, CA file .*"));
  EXPECT_THAT(line, HasSubstr(", CA file " + authorityFile));
  expectThatItServes(portIn(line), contentOf(authorityFile));
  EXPECT_TRUE(eventually([&] { return collector.output().find("payload.sub") != std::string::npos; }));
}

TEST_F(CollectorProgramTest, KeepsItsAuthorityFromOneStartToTheNext) {
  std::string authorityPem;
  for (int count = 0; count < 2; ++count) {
    ChildProcess collector(start());
    const std::uint16_t port = portIn(firstLine(collector));
    if (authorityPem.empty()) authorityPem = contentOf(temporary.path() + "/ca.pem");
    expectThatItServes(port, authorityPem);
  }
}

TEST_F(CollectorProgramTest, KeepsThePrivateKeyFromOthers) {
  ChildProcess collector(start());
  firstLine(collector);
  EXPECT_EQ(fs::status(temporary.path() + "/ca-key.pem").permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(CollectorProgramTest, KeepsItsFilesInTheUsersStateDirectoryByDefault) {
  ChildProcess collector(command({"--port", "0"}), {"XDG_STATE_HOME=" + temporary.path()});
  EXPECT_THAT(firstLine(collector), HasSubstr(", CA file " + temporary.path() + "/kx-collector/ca.pem"));
}

TEST_F(CollectorProgramTest, ShowsTheCertificateThatItIsGiven) {
  const CertificateAuthority authority("Another authority");
  const auto now = std::chrono::system_clock::now();
  const auto own = authority.issue({"localhost"}, now - std::chrono::hours(1), now + std::chrono::hours(1));
  const std::string certificate = temporary.path() + "/own.pem";
  const std::string key = temporary.path() + "/own-key.pem";
  std::ofstream(certificate) << own.certificate;
  std::ofstream(key) << own.privateKey;
  ChildProcess collector(start({"--certificate", certificate, "--key", key}));
  const std::string line = firstLine(collector);
  EXPECT_THAT(line, HasSubstr(", certificate " + certificate));
  expectThatItServes(portIn(line), authority.certificate().certificate);
  EXPECT_FALSE(fs::exists(temporary.path() + "/ca.pem"));
}

TEST_F(CollectorProgramTest, TellsScriptsInJSON) {
  ChildProcess collector(start({"--json"}));
  const Document line = Document::parse(firstLine(collector));
  EXPECT_EQ(line.value("event", ""), "listening");
  EXPECT_EQ(line.value("address", ""), "127.0.0.1");
  expectThatItServes(line.value("port", std::uint16_t{0}), contentOf(line.value("caFile", "")));
  EXPECT_TRUE(
      eventually([&] { return collector.output().find("\"event\":\"request\"") != std::string::npos; }));
}

TEST_F(CollectorProgramTest, EndsWithSuccessWhenItIsTold) {
  for (const int signal : {SIGINT, SIGTERM}) {
    ChildProcess collector(start());
    firstLine(collector);
    collector.sendSignal(signal);
    EXPECT_EQ(collector.exitCode(), 0);
    EXPECT_EQ(collector.errors(), "");
  }
}

TEST_F(CollectorProgramTest, EndsWithClientsStillConnected) {
  ChildProcess collector(start({"--login-delay", "60"}));
  const std::uint16_t port = portIn(firstLine(collector));
  const std::string authorityPem = contentOf(temporary.path() + "/ca.pem");
  Client idle(port, authorityPem);
  Client waiting(port, authorityPem);
  waiting.write(wireText(loginRequest()));
  EXPECT_TRUE(eventually([&] { return collector.output().find("payload.sub") != std::string::npos; }));
  collector.sendSignal(SIGTERM);
  EXPECT_EQ(collector.exitCode(), 0);
  EXPECT_EQ(collector.errors(), "");
}

TEST_F(CollectorProgramTest, DoesAsItsOptionsSay) {
  ChildProcess collector(start({"--login-status", "500:1", "--max-body", "500"}));
  const std::uint16_t port = portIn(firstLine(collector));
  const std::string authorityPem = contentOf(temporary.path() + "/ca.pem");
  EXPECT_EQ(Client(port, authorityPem).exchange(loginRequest())->result_int(), 500u);
  expectThatItServes(port, authorityPem);
  Request request = loginRequest();
  request.body = std::string(501, 'x');
  EXPECT_EQ(Client(port, authorityPem).exchange(request)->result_int(), 413u);
}

TEST_F(CollectorProgramTest, PrintsItsHelp) {
  ChildProcess collector(command({"--help"}));
  EXPECT_EQ(collector.exitCode(), 0);
  EXPECT_THAT(collector.output(), HasSubstr("--login-status N[:COUNT]"));
  EXPECT_EQ(collector.errors(), "");
}

TEST_F(CollectorProgramTest, BadArgumentsAreAnError) {
  expectBadArguments({"--port", "65536"}, "--port must be a number from 0 to 65535, not \"65536\"");
  expectBadArguments({"--unknown"}, "unrecognised option '--unknown'");
  expectBadArguments({"--certificate", "/does/not/exist", "--key", "/neither"}, "No such file or directory");
}

TEST_F(CollectorProgramTest, AStartThatFailsIsAnErrorOfAnotherKind) {
  ChildProcess first(start());
  const std::uint16_t port = portIn(firstLine(first));
  ChildProcess second(command({"--port", std::to_string(port), "--directory", temporary.path()}));
  EXPECT_EQ(second.exitCode(), 1);
  EXPECT_THAT(second.errors(), HasSubstr("in use"));
  ChildProcess third(command({"--port", "0", "--directory", "/dev/null/x"}));
  EXPECT_EQ(third.exitCode(), 1);
  EXPECT_THAT(third.errors(), StartsWith("kx-collector: "));
}

}  // namespace
}  // namespace kx::collector
