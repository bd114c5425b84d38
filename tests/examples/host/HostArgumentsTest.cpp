// The command line of kx-host.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/examples/host/HostFixture.h"

namespace kx {
namespace {

using ::testing::HasSubstr;

/// What it complains about; empty when it does not exit as it should then.
std::string complaintAbout(const std::vector<std::string> &arguments) {
  const auto host = startHost(arguments);
  EXPECT_EQ(host->exitCode(), 2) << ::testing::PrintToString(arguments);
  EXPECT_EQ(host->output(), "");
  EXPECT_THAT(host->errors(), HasSubstr("See kx-host --help."));
  return host->errors();
}

/// The same with the required arguments, and these.
std::string complaintAboutAlso(std::vector<std::string> arguments) {
  arguments.insert(arguments.end(), {"--api-token", "T", "--hostname", "localhost"});
  return complaintAbout(arguments);
}

TEST(HostArgumentsTest, NeedsAnAPITokenAndAHostName) {
  EXPECT_THAT(complaintAbout({}), HasSubstr("kx-host: --api-token is missing"));
  EXPECT_THAT(complaintAbout({"--hostname", "localhost"}), HasSubstr("kx-host: --api-token is missing"));
  EXPECT_THAT(complaintAbout({"--api-token", ""}), HasSubstr("kx-host: --api-token is missing"));
  EXPECT_THAT(complaintAbout({"--api-token", "T"}), HasSubstr("kx-host: --hostname is missing"));
}

TEST(HostArgumentsTest, RefusesWhatIsNoHostName) {
  for (const char *hostname :
       {"https://localhost", "localhost/", "localhost:65536", "localhost:0", "localhost:x", "user@localhost",
        "local host", "localhost?x", "localhost#x", ":8443", "[::1", "a/b"}) {
    EXPECT_THAT(complaintAbout({"--api-token", "T", "--hostname", hostname}),
                HasSubstr("kx-host: --hostname must be a host name, and may end in a colon and a port"))
        << hostname;
  }
}

TEST(HostArgumentsTest, RefusesACAFileThatItCannotRead) {
  EXPECT_THAT(complaintAboutAlso({"--ca-file", "/does/not/exist.pem"}),
              HasSubstr("kx-host: --ca-file cannot be read: /does/not/exist.pem"));
}

TEST(HostArgumentsTest, RefusesAnAdvertisingIdentifierThatIsNoUUID) {
  for (const char *identifier :
       {"", "x", "6D92078A82464BA4AE5B76104861E7DC", "6D92078A-8246-4BA4-AE5B-76104861E7D",
        "{6D92078A-8246-4BA4-AE5B-76104861E7DC}", "6D92078A-8246-4BA4-AE5B-76104861E7DG"}) {
    EXPECT_THAT(complaintAboutAlso({"--ifa", identifier}), HasSubstr("kx-host: --ifa must be a UUID"))
        << identifier;
  }
}

TEST(HostArgumentsTest, RefusesWhatIsNoApplicationIdentifier) {
  for (const char *identifier :
       {"", "host", "com.example.", "com..example", "com.1example", "com.example.Host!"}) {
    EXPECT_THAT(complaintAboutAlso({"--application-id", identifier}),
                HasSubstr("kx-host: --application-id must be one, like com.example.KXHost"))
        << identifier;
  }
}

TEST(HostArgumentsTest, RefusesWhatIsNoTimeToExit) {
  for (const char *seconds : {"", "0", "-1", "nan", "inf", "1e9", "x", "1s", "1,5"}) {
    EXPECT_THAT(
        complaintAboutAlso({"--exit-after", seconds}),
        HasSubstr("kx-host: --exit-after must be a number of seconds, more than 0 and at most 4000000"))
        << seconds;
  }
}

TEST(HostArgumentsTest, RefusesWhatItDoesNotKnow) {
  EXPECT_THAT(complaintAboutAlso({"--unknown"}), HasSubstr("Unknown option --unknown"));
  EXPECT_THAT(complaintAboutAlso({"argument"}), HasSubstr("kx-host: unexpected argument argument"));
  EXPECT_THAT(complaintAbout({"--api-token"}), HasSubstr("Missing argument for --api-token"));
}

TEST(HostArgumentsTest, PrintsItsHelp) {
  const auto host = startHost({"--help"});
  EXPECT_EQ(host->exitCode(), 0);
  for (const char *option :
       {"--api-token", "--hostname", "--ca-file", "--ifa", "--tracking-limited", "--application-id",
        "--no-background-refresh", "--debug", "--explain", "--exit-after", "b background, f foreground"}) {
    EXPECT_THAT(host->output(), HasSubstr(option));
  }
  EXPECT_EQ(host->errors(), "");
}

}  // namespace
}  // namespace kx
