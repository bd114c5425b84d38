// kx-host and kx-collector together, in real time: the first report comes about 5 s after the start, and
// another one as long after each return to the foreground.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "tests/examples/host/HostFixture.h"

namespace kx {
namespace {

using collector::Document;
using std::chrono::seconds;
using std::chrono::steady_clock;

// A timer of 5 s may be observed a little early: the start and the end are other processes' business.
constexpr std::chrono::milliseconds almostFiveSeconds{4500};

bool arrives(const Collector &collector, const std::string &applicationID, std::size_t count) {
  return eventually([&] { return collector.messages(applicationID).size() >= count; });
}

TEST(HostReportsTest, ReportsAfterTheStartAndWheneverItEntersOrLeavesTheBackground) {
  const Collector collector;
  const auto start = steady_clock::now();
  const auto host = collector.startClient("com.example.One", {"--ifa", someIdentifier});
  // Another one, which may not work in the background, does the same.
  const auto other =
      collector.startClient("com.example.Other", {"--ifa", someIdentifier, "--no-background-refresh"});
  ASSERT_TRUE(arrives(collector, "com.example.One", 1)) << host->errors() << collector.transcript();
  EXPECT_GE(steady_clock::now() - start, almostFiveSeconds);
  ASSERT_TRUE(arrives(collector, "com.example.Other", 1)) << other->errors() << collector.transcript();
  EXPECT_EQ(collector.logins("com.example.One").size(), 1u);

  for (const auto &one : {host.get(), other.get()}) one->write("b\n");
  EXPECT_TRUE(arrives(collector, "com.example.One", 2));
  EXPECT_TRUE(arrives(collector, "com.example.Other", 2));

  const auto returned = steady_clock::now();
  for (const auto &one : {host.get(), other.get()}) one->write("f\n");
  EXPECT_TRUE(arrives(collector, "com.example.One", 3));
  EXPECT_GE(steady_clock::now() - returned, almostFiveSeconds);
  EXPECT_TRUE(arrives(collector, "com.example.Other", 3));

  for (const Document &message : collector.messages("com.example.One")) {
    EXPECT_EQ(message.value("status", 0), 200) << message;
    EXPECT_EQ(message["document"][0].value("ifa", ""), someIdentifier);
  }
  for (const auto &one : {host.get(), other.get()}) {
    one->write("q\n");
    EXPECT_EQ(one->exitCode(), 0);
    EXPECT_EQ(one->errors(), "");
  }
}

TEST(HostReportsTest, WithoutAnAdvertisingIdentifierItLogsInAndSendsNothing) {
  const Collector collector;
  const auto silent = collector.startClient("com.example.Silent", {});
  const auto zeros =
      collector.startClient("com.example.Zeros", {"--ifa", "00000000-0000-0000-0000-000000000000"});
  ASSERT_TRUE(eventually([&] {
    return collector.logins("com.example.Silent").size() == 1 &&
           collector.logins("com.example.Zeros").size() == 1;
  })) << silent->errors()
      << collector.transcript();
  // One that started later, and has reported twice, shows how much time has passed.
  const auto loud = collector.startClient("com.example.Loud", {"--ifa", someIdentifier});
  ASSERT_TRUE(arrives(collector, "com.example.Loud", 1)) << loud->errors() << collector.transcript();
  for (const auto &one : {silent.get(), zeros.get(), loud.get()}) one->write("b\n");
  ASSERT_TRUE(arrives(collector, "com.example.Loud", 2));
  for (const auto &one : {silent.get(), zeros.get()}) {
    one->write("q\n");
    EXPECT_EQ(one->exitCode(), 0);
    EXPECT_EQ(one->errors(), "");
  }
  EXPECT_TRUE(collector.messages("com.example.Silent").empty());
  EXPECT_TRUE(collector.messages("com.example.Zeros").empty());
}

TEST(HostReportsTest, LogsInAgainWhenItsTokenIsRefused) {
  const Collector collector({"--expire-tokens", "3"});
  const auto host = collector.startClient("com.example.One", {"--ifa", someIdentifier});
  ASSERT_TRUE(eventually([&] { return collector.logins("com.example.One").size() == 2; }))
      << host->errors() << collector.transcript();
  ASSERT_EQ(collector.messages("com.example.One").size(), 1u);
  EXPECT_EQ(collector.messages("com.example.One")[0].value("status", 0), 403);
  EXPECT_TRUE(eventually([&host] {
    return host->errors().find("[KX Error] Error sending data. Calling updateAccessToken:") !=
           std::string::npos;
  })) << host->errors()
      << collector.transcript();
}

TEST(HostReportsTest, TrustsNoAuthorityThatItWasNotGiven) {
  const Collector collector;
  const std::string hostname = collector.argumentsForHosts()[1];
  const auto host = startHost({"--api-token", "T", "--hostname", hostname, "--ifa", someIdentifier});
  EXPECT_TRUE(eventually([&host] {
    return host->errors().find("[KX Error] Error getting access token: ") != std::string::npos;
  })) << host->errors()
      << collector.transcript();
  EXPECT_TRUE(collector.logins("com.example.KXHost").empty());
}

}  // namespace
}  // namespace kx
