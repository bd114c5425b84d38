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
#include "tools/collector/ServerNames.h"

namespace kx::collector {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
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

TEST_F(CollectorProgramTest, GoesOnWhileTheReaderOfItsOutputPauses) {
  const std::string resumed = temporary.path() + "/resumed";
  // A reader that takes the first line, and the rest once that file is there. The collector takes the shell's
  // place.
  const std::string reader = R"(exec "$0" "$@" > >(IFS= read -r first; printf '%s\n' "$first"
                                until [ -e "$RESUMED" ]; do sleep 0.05; done; exec cat))";
  std::vector<std::string> all = {"/bin/bash", "-c", reader};
  for (const std::string &word : start({"--json"})) all.push_back(word);
  ChildProcess collector(all, {"RESUMED=" + resumed});
  const std::uint16_t port = Document::parse(firstLine(collector)).value("port", std::uint16_t{0});
  const std::string authorityPem = contentOf(temporary.path() + "/ca.pem");
  Document document = loginDocument();
  document["payload"]["name"] = std::string(500000, 'x');
  const Request request = loginRequest(document);
  Client client(port, authorityPem);
  for (int number = 0; number < 40; ++number) {  // 20 MB of output
    const auto response = client.exchange(request);
    ASSERT_TRUE(response) << number;
    ASSERT_EQ(response->result_int(), 200u) << number;
  }
  std::ofstream(resumed) << "";
  EXPECT_TRUE(eventually(
      [&] { return collector.output().find("{\"event\":\"leftOut\",\"count\":") != std::string::npos; }));
  expectThatItServes(port, authorityPem);
  EXPECT_TRUE(eventually(
      [&] { return collector.output().find("an API token\",\"name\":\"Linux") != std::string::npos; }));
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
  ChildProcess third(command({"--port", "0", "--directory", "/dev/null/x"}));
  EXPECT_EQ(third.exitCode(), 1);
  EXPECT_THAT(third.errors(), StartsWith("kx-collector: "));
}

TEST_F(CollectorProgramTest, APortInUseSaysByWhomAndWhatToDo) {
  ChildProcess first(start());
  const std::string port = std::to_string(portIn(firstLine(first)));
  ChildProcess second(command({"--port", port, "--directory", temporary.path()}));
  EXPECT_EQ(second.exitCode(), 1);
  EXPECT_THAT(second.errors(),
              HasSubstr("port " + port + " of 127.0.0.1 is in use, by \"kx-collector\" (process "));
  EXPECT_THAT(second.errors(), HasSubstr("--port 0"));
}

TEST_F(CollectorProgramTest, AnAuthorityThatCannotBeUsedIsReplacedWhenItIsTold) {
  {
    ChildProcess first(start());
    firstLine(first);
  }
  fs::permissions(temporary.path() + "/ca-key.pem", fs::perms::group_read, fs::perm_options::add);
  ChildProcess refused(start());
  EXPECT_EQ(refused.exitCode(), 1);
  EXPECT_THAT(refused.errors(), HasSubstr("start once with --new-ca"));
  EXPECT_EQ(refused.output(), "");
  ChildProcess anew(start({"--new-ca"}));
  const std::uint16_t port = portIn(firstLine(anew));  // by then it has been made
  expectThatItServes(port, contentOf(temporary.path() + "/ca.pem"));
}

TEST_F(CollectorProgramTest, SaysWhatToDoNext) {
  ChildProcess collector(start());
  const std::uint16_t port = portIn(firstLine(collector));
  const std::string last =
      "sharedInstanceWithApiToken(\"any text\", \"127.0.0.1:" + std::to_string(port) + "\");\n\n";
  EXPECT_TRUE(eventually([&] { return collector.output().find(last) != std::string::npos; }))
      << collector.output();
  EXPECT_THAT(collector.output(),
              HasSubstr("certificateAuthorityFile = \"" + temporary.path() + "/ca.pem\";\n"));
  // Nobody but this machine can fetch anything from loopback.
  EXPECT_THAT(collector.output(), Not(HasSubstr("Have a phone")));
}

TEST_F(CollectorProgramTest, OnEveryAddressItNamesOneThatCanBeCalled) {
  ChildProcess collector(start({"--address", "0.0.0.0"}));
  const std::string line = firstLine(collector);
  EXPECT_THAT(line, Not(HasSubstr("0.0.0.0")));
  const std::uint16_t port = portIn(line);
  const std::string authorityPem = contentOf(temporary.path() + "/ca.pem");
  expectThatItServes(port, authorityPem);
  Request request{"GET", "/ca.pem", {{"Host", "localhost"}}, ""};
  const auto response = Client(port, authorityPem).exchange(request);
  ASSERT_TRUE(response);
  EXPECT_EQ(response->body(), authorityPem);
  EXPECT_EQ((*response)["Content-Type"], "application/x-x509-ca-cert");
}

TEST_F(CollectorProgramTest, DrawsAQRCodeOnATerminalAlone) {
  if (outwardAddress().is_unspecified()) GTEST_SKIP() << "only loopback is there";
  std::string words;
  for (const std::string &word : start({"--address", "0.0.0.0"})) words += word + " ";
  const std::string fingerprint = "fingerprint is";
  const std::string light = "\u2588\u2588\u2588\u2588";
  const auto printed = [&](ChildProcess &collector) {
    EXPECT_TRUE(eventually([&] { return collector.output().find(fingerprint) != std::string::npos; }));
    // What follows comes in the same piece.
    EXPECT_TRUE(eventually([&] {
      const std::string output = collector.output();
      return output.size() > 3 &&
             (output.substr(output.size() - 2) == "\n\n" || output.substr(output.size() - 4) == "\r\n\r\n");
    }));
    return collector.output();
  };
  ChildProcess terminal({"/usr/bin/script", "-qfec", words, "/dev/null"});
  EXPECT_THAT(printed(terminal), HasSubstr("\x1B[40;97m" + light));
  ChildProcess withoutColours({"/usr/bin/script", "-qfec", words, "/dev/null"}, {"NO_COLOR=1"});
  const std::string plain = printed(withoutColours);
  EXPECT_THAT(plain, HasSubstr("\n" + light));
  EXPECT_THAT(plain, Not(HasSubstr("\x1B")));
  ChildProcess pipe(start({"--address", "0.0.0.0"}));
  EXPECT_THAT(printed(pipe), Not(HasSubstr(light)));
}

TEST_F(CollectorProgramTest, ThePageIsElsewhereForWhoHasThePassword) {
  ChildProcess loopback(start({"--json", "--page-port", "0"}));
  const Document here = Document::parse(firstLine(loopback));
  EXPECT_THAT(here.value("page", ""), StartsWith("http://127.0.0.1:"));
  EXPECT_FALSE(here.contains("pagePassword"));
  ChildProcess everywhere(start({"--json", "--page-port", "0", "--page-address", "0.0.0.0"}));
  const Document there = Document::parse(firstLine(everywhere));
  EXPECT_EQ(there.value("page", "").find("0.0.0.0"), std::string::npos);
  EXPECT_EQ(there.value("pagePassword", "").size(), 20u);
  const std::string file = temporary.path() + "/password";
  std::ofstream(file) << "secret\n";
  fs::permissions(file, fs::perms::owner_read);
  ChildProcess chosen(start({"--json", "--page-port", "0", "--page-password-file", file}));
  const std::string line = firstLine(chosen);
  EXPECT_THAT(line, Not(HasSubstr("secret")));
  EXPECT_FALSE(Document::parse(line).contains("pagePassword"));
}

TEST_F(CollectorProgramTest, APortOfThePageInUseNamesItsOption) {
  ChildProcess first(start({"--json", "--page-port", "0"}));
  const std::string page = Document::parse(firstLine(first)).value("page", "");
  const std::string port = page.substr(page.rfind(':') + 1);
  ChildProcess second(start({"--page-port", port}));
  EXPECT_EQ(second.exitCode(), 1);
  EXPECT_THAT(second.errors(),
              HasSubstr("port " + port + " of 127.0.0.1 is in use, by \"kx-collector\" (process "));
  EXPECT_THAT(second.errors(), HasSubstr("--page-port 0"));
}

TEST_F(CollectorProgramTest, QuietlyTellsOnlyWhatWentWrong) {
  ChildProcess collector(start({"--quiet"}));
  const std::string line = firstLine(collector);
  const std::uint16_t port = portIn(line);
  const std::string authorityPem = contentOf(temporary.path() + "/ca.pem");
  expectThatItServes(port, authorityPem);
  Client(port, authorityPem).exchange(messageRequest("unknown"));
  EXPECT_TRUE(eventually([&] { return collector.output().find("answered 403") != std::string::npos; }));
  EXPECT_THAT(collector.output(), StartsWith(line + "\n"));
  EXPECT_THAT(collector.output(), Not(HasSubstr("accepted")));
  EXPECT_THAT(collector.output(), Not(HasSubstr("sharedInstance")));
}

TEST_F(CollectorProgramTest, TellsItsVersion) {
  ChildProcess collector(command({"--version"}));
  EXPECT_EQ(collector.exitCode(), 0);
  EXPECT_THAT(collector.output(), MatchesRegex("kx-collector [0-9]+\\.[0-9]+.*\n"));
}

}  // namespace
}  // namespace kx::collector
