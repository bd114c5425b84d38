#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <sstream>
#include <vector>

#include "tools/collector/Options.h"

namespace kx::collector {
namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;

Options options(std::initializer_list<const char *> arguments) {
  std::vector<const char *> all = {"kx-collector"};
  all.insert(all.end(), arguments);
  return optionsFrom(static_cast<int>(all.size()), all.data());
}

std::string refusalOf(std::initializer_list<const char *> arguments) {
  try {
    options(arguments);
    return "";
  } catch (const BadArguments &error) {
    return error.what();
  }
}

TEST(OptionsTest, WithoutArgumentsItListensOnLoopback) {
  const Options none = options({});
  EXPECT_EQ(none.address, "127.0.0.1");
  EXPECT_EQ(none.port, 8443);
  EXPECT_FALSE(none.directory);
  EXPECT_FALSE(none.certificate);
  EXPECT_FALSE(none.service.login.status);
  EXPECT_FALSE(none.service.message.status);
  EXPECT_EQ(none.service.login.delay, milliseconds(0));
  EXPECT_FALSE(none.service.login.drop);
  EXPECT_FALSE(none.service.message.drop);
  EXPECT_FALSE(none.service.tokenLifetime);
  EXPECT_EQ(none.service.maximumBodySize, 1048576u);
  EXPECT_FALSE(none.json);
  EXPECT_FALSE(none.help);
  EXPECT_FALSE(none.version);
  EXPECT_FALSE(none.quiet);
  EXPECT_FALSE(none.newAuthority);
  EXPECT_EQ(none.pageAddress, "127.0.0.1");
  EXPECT_FALSE(none.pagePasswordFile);
}

TEST(OptionsTest, ReadsWhereThePageIsAndWhatIsKept) {
  const Options none = options({});
  EXPECT_TRUE(none.page);
  EXPECT_FALSE(none.pagePort);
  EXPECT_FALSE(none.database);
  EXPECT_EQ(none.keep, 100000u);
  EXPECT_EQ(options({"--page-port", "0"}).pagePort, 0);
  EXPECT_FALSE(options({"--no-page"}).page);
  const Options given = options({"--database", "/a file", "--keep", "7"});
  EXPECT_EQ(given.database, "/a file");
  EXPECT_EQ(given.keep, 7u);
  EXPECT_EQ(refusalOf({"--keep", "0"}), "--keep must be a number from 1 to 100000000, not \"0\"");
  EXPECT_EQ(refusalOf({"--page-port", "65536"}),
            "--page-port must be a number from 0 to 65535, not \"65536\"");
  EXPECT_EQ(refusalOf({"--page-port", "1", "--no-page"}), "--no-page and --page-port exclude each other");
}

TEST(OptionsTest, ReadsWhereToListen) {
  EXPECT_EQ(options({"--address", "::1"}).address, "::1");
  EXPECT_EQ(options({"--address=192.168.1.5"}).address, "192.168.1.5");
  EXPECT_EQ(options({"--port", "0"}).port, 0);
  EXPECT_EQ(options({"--port", "65535"}).port, 65535);
}

TEST(OptionsTest, ReadsFiles) {
  EXPECT_EQ(options({"--directory", "/some/where"}).directory, "/some/where");
  const Options given = options({"--certificate", "c.pem", "--key", "k.pem"});
  ASSERT_TRUE(given.certificate);
  EXPECT_EQ(given.certificate->certificate, "c.pem");
  EXPECT_EQ(given.certificate->key, "k.pem");
}

TEST(OptionsTest, ReadsTheFaultsOfEachEndpoint) {
  const Options login = options({"--login-status", "503:2", "--login-delay", "1.5", "--login-drop"});
  EXPECT_EQ(login.service.login.status, 503u);
  EXPECT_EQ(login.service.login.statusCount, 2u);
  EXPECT_EQ(login.service.login.delay, milliseconds(1500));
  EXPECT_TRUE(login.service.login.drop);
  EXPECT_FALSE(login.service.message.status);
  EXPECT_FALSE(login.service.message.drop);
  const Options message = options({"--message-status", "200", "--message-delay", "0.0001", "--message-drop"});
  EXPECT_EQ(message.service.message.status, 200u);
  EXPECT_FALSE(message.service.message.statusCount);
  EXPECT_EQ(message.service.message.delay, milliseconds(1));
  EXPECT_TRUE(message.service.message.drop);
  EXPECT_FALSE(message.service.login.status);
}

TEST(OptionsTest, ReadsTheRest) {
  EXPECT_EQ(options({"--expire-tokens", "60"}).service.tokenLifetime, milliseconds(60000));
  EXPECT_EQ(options({"--max-body", "2048"}).service.maximumBodySize, 2048u);
  EXPECT_TRUE(options({"--json"}).json);
  EXPECT_TRUE(options({"--help"}).help);
  EXPECT_TRUE(options({"-h"}).help);
  EXPECT_TRUE(options({"--version"}).version);
  EXPECT_TRUE(options({"--quiet"}).quiet);
  EXPECT_TRUE(options({"--new-ca"}).newAuthority);
  EXPECT_EQ(options({"--page-address", "0.0.0.0"}).pageAddress, "0.0.0.0");
  EXPECT_EQ(options({"--page-password-file", "/a/file"}).pagePasswordFile, "/a/file");
}

TEST(OptionsTest, ReadsWhatCollectorsSideBySideNeed) {
  const Options none = options({});
  EXPECT_FALSE(none.stream);
  EXPECT_FALSE(none.operationsPort);
  EXPECT_FALSE(none.maximumConnections);
  EXPECT_EQ(options({"--token-keys", "/a/file"}).tokenKeys, "/a/file");
  const Options some =
      options({"--operations-port", "0", "--operations-address", "::1", "--max-connections", "9"});
  EXPECT_EQ(some.operationsPort, 0);
  EXPECT_EQ(some.operationsAddress, "::1");
  EXPECT_EQ(some.maximumConnections, 9u);
}

TEST(OptionsTest, ReadsWhereTheStreamIs) {
  const Options usual = options({"--stream", "nats://a:1,tls://b:2"});
  ASSERT_TRUE(usual.stream);
  EXPECT_EQ(usual.stream->servers, (std::vector<std::string>{"nats://a:1", "tls://b:2"}));
  EXPECT_EQ(usual.stream->name, "KX-MESSAGES");
  EXPECT_EQ(usual.stream->subject, "kx.messages");
  EXPECT_EQ(usual.stream->replicas, 1u);
  EXPECT_EQ(usual.stream->timeout, milliseconds(5000));
  EXPECT_FALSE(usual.page);
  EXPECT_EQ(usual.service.maximumBodySize, 65536u);
  const Options other = options({"--stream", "nats://a", "--stream-name", "N", "--stream-subject", "a.b",
                                 "--stream-replicas", "3", "--stream-timeout", "0.5", "--stream-credentials",
                                 "/c", "--stream-ca", "/d", "--max-body", "100000"});
  EXPECT_EQ(other.stream->name, "N");
  EXPECT_EQ(other.stream->subject, "a.b");
  EXPECT_EQ(other.stream->replicas, 3u);
  EXPECT_EQ(other.stream->timeout, milliseconds(500));
  EXPECT_EQ(other.stream->attemptTimeout, milliseconds(500));
  EXPECT_EQ(other.stream->patience, milliseconds(500));
  EXPECT_EQ(other.stream->credentials, "/c");
  EXPECT_EQ(other.stream->authority, "/d");
  EXPECT_EQ(other.service.maximumBodySize, 100000u);
}

TEST(OptionsTest, RefusesAStreamThatMakesNoSense) {
  EXPECT_THAT(refusalOf({"--stream", " , "}), HasSubstr("there is no URL of a stream"));
  EXPECT_THAT(refusalOf({"--stream", "http://user:secret@a"}),
              HasSubstr("must begin with nats:// or tls://"));
  EXPECT_THAT(refusalOf({"--stream", "http://user:secret@a"}), ::testing::Not(HasSubstr("secret")));
  EXPECT_THAT(refusalOf({"--stream", "nats://a", "--stream-file", "/x"}), HasSubstr("exclude each other"));
  EXPECT_THAT(refusalOf({"--stream-file", "/does/not/exist"}), HasSubstr("--stream-file cannot be used"));
  EXPECT_THAT(refusalOf({"--stream-name", "N"}), HasSubstr("--stream-name needs --stream"));
  EXPECT_THAT(refusalOf({"--operations-address", "::1"}), HasSubstr("needs --operations-port"));
  for (const char *const name : {"", "a.b", "a b", "*", "a/b"}) {
    EXPECT_THAT(refusalOf({"--stream", "nats://a", "--stream-name", name}),
                HasSubstr("--stream-name must be"))
        << name;
  }
  for (const char *const subject : {"", ".", "a.", "a..b", "a b", "a.*", ">", "$JS"}) {
    EXPECT_THAT(refusalOf({"--stream", "nats://a", "--stream-subject", subject}),
                HasSubstr("--stream-subject must be"))
        << subject;
  }
  EXPECT_THAT(refusalOf({"--stream", "nats://a", "--stream-replicas", "6"}), HasSubstr("from 1 to 5"));
  for (const std::vector<std::string> &other : {std::vector<std::string>{"--database", "x"},
                                                {"--keep", "5"},
                                                {"--page-port", "0"},
                                                {"--page-address", "::1"}}) {
    EXPECT_THAT(refusalOf({"--stream", "nats://a", other[0].c_str(), other[1].c_str()}),
                HasSubstr("--stream and " + other[0] + " exclude each other"));
  }
}

TEST(OptionsTest, RefusesValuesOutOfRangeAndSaysWhatTheyMayBe) {
  EXPECT_EQ(refusalOf({"--port", "65536"}), "--port must be a number from 0 to 65535, not \"65536\"");
  EXPECT_EQ(refusalOf({"--max-body", "0"}), "--max-body must be a number from 1 to 1073741824, not \"0\"");
  EXPECT_EQ(refusalOf({"--address", "localhost"}),
            "--address must be an IPv4 or IPv6 address, not \"localhost\"");
  EXPECT_EQ(refusalOf({"--page-address", "localhost"}),
            "--page-address must be an IPv4 or IPv6 address, not \"localhost\"");
  for (const char *port : {"-1", "", "1.5", "x", "1 ", "0x10", "99999999999999999999"}) {
    EXPECT_THAT(refusalOf({"--port", port}), HasSubstr("--port must be a number")) << port;
  }
  for (const char *duration : {"0", "-1", "nan", "inf", "1e9", "86401", "x", "", "1s"}) {
    for (const char *option : {"--login-delay", "--message-delay", "--expire-tokens"}) {
      EXPECT_EQ(refusalOf({option, duration}), std::string(option) +
                                                   " must be a number of seconds, more than 0 and at most "
                                                   "86400, not \"" +
                                                   duration + "\"");
    }
  }
}

TEST(OptionsTest, RefusesWhatIsNoStatusAndNoCount) {
  for (const char *option : {"--login-status", "--message-status"}) {
    for (const char *status : {"", "0", "100", "199", "600", "65736", "-200", "x", "200x", ":1"}) {
      EXPECT_THAT(refusalOf({option, status}), HasSubstr("must be a status from 200 to 599")) << status;
    }
    for (const char *status : {"500:", "500:0", "500:-1", "500:x", "500:65536", "500:1:1", "500: 1"}) {
      EXPECT_THAT(refusalOf({option, status}), HasSubstr("must have a count from 1 to 65535")) << status;
    }
  }
}

TEST(OptionsTest, ACertificateAndItsKeyNeedEachOther) {
  EXPECT_EQ(refusalOf({"--certificate", "c.pem"}), "--certificate and --key need each other");
  EXPECT_EQ(refusalOf({"--key", "k.pem"}), "--certificate and --key need each other");
}

TEST(OptionsTest, ACertificateOfOnesOwnNeedsNoNewAuthority) {
  EXPECT_EQ(refusalOf({"--certificate", "c.pem", "--key", "k.pem", "--new-ca"}),
            "--new-ca makes an authority, which --certificate does without");
}

TEST(OptionsTest, RefusesWhatItDoesNotKnow) {
  EXPECT_EQ(refusalOf({"--unknown"}), "unrecognised option '--unknown'");
  EXPECT_NE(refusalOf({"--por", "1"}), "");
  EXPECT_NE(refusalOf({"-p", "1"}), "");
  EXPECT_NE(refusalOf({"argument"}), "");
}

TEST(OptionsTest, RefusesOptionsThatAreIncompleteOrRepeated) {
  EXPECT_EQ(refusalOf({"--port"}), "the required argument for option '--port' is missing");
  EXPECT_EQ(refusalOf({"--json=yes"}), "option '--json' does not take any arguments");
  EXPECT_EQ(refusalOf({"--port", "1", "--port", "2"}), "option '--port' cannot be specified more than once");
}

TEST(OptionsTest, TheHelpNamesEveryOption) {
  std::ostringstream help;
  printHelp(help);
  for (const char *option :
       {"--address",      "--port",           "--directory",   "--certificate",   "--key",
        "--login-status", "--message-status", "--login-delay", "--message-delay", "--login-drop",
        "--message-drop", "--expire-tokens",  "--max-body",    "--json",          "--help",
        "--version",      "--quiet",          "--new-ca",      "--page-address",  "--page-password-file",
        "NO_COLOR"}) {
    EXPECT_THAT(help.str(), HasSubstr(option));
  }
}

}  // namespace
}  // namespace kx::collector
