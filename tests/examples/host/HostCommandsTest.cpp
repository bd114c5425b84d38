// kx-host by itself: its commands, what it prints, how it ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "tests/examples/host/HostFixture.h"

namespace kx {
namespace {

using std::chrono::steady_clock;
using ::testing::HasSubstr;
using ::testing::Not;

/// Lets it print its message until that is in it; the library learns about the device little by little.
bool eventuallyPrints(ChildProcess &host, const std::string &text) {
  return eventually([&host, &text] {
    host.write("p\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return host.output().find(text) != std::string::npos;
  });
}

TEST(HostCommandsTest, QuitsWithSuccess) {
  const auto host = startLonelyHost();
  host->write("q\n");
  EXPECT_EQ(host->exitCode(), 0);
  EXPECT_EQ(host->output(), "");
}

TEST(HostCommandsTest, QuitsByItselfWhenItIsTold) {
  const auto start = steady_clock::now();
  const auto host = startLonelyHost({"--exit-after", "0.5"});
  EXPECT_EQ(host->exitCode(), 0);
  EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(500));
}

TEST(HostCommandsTest, TheEndOfItsInputIsNotTheEndOfIt) {
  const auto start = steady_clock::now();
  const auto host = startLonelyHost({"--exit-after", "1.5"});
  host->closeInput();
  EXPECT_EQ(host->exitCode(), 0);
  EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(1500));
}

TEST(HostCommandsTest, ALineMayHoldSeveralCommands) {
  const auto host = startLonelyHost();
  host->write("b f\tdD\n\nbfpq\n");
  EXPECT_EQ(host->exitCode(), 0);
  EXPECT_THAT(host->output(), HasSubstr("\"sdkName\":\"KXPublisher iOS\""));
  EXPECT_THAT(host->errors(), Not(HasSubstr("unknown command")));
}

TEST(HostCommandsTest, AnUnknownCommandGetsAHint) {
  const auto host = startLonelyHost();
  host->write("x\n\x01q\n");
  EXPECT_EQ(host->exitCode(), 0);
  EXPECT_THAT(host->errors(),
              HasSubstr("kx-host: unknown command 'x'; there are: b background, f foreground"));
  EXPECT_THAT(host->errors(), HasSubstr("kx-host: unknown command; there are: "));
  EXPECT_EQ(host->output(), "");
}

TEST(HostCommandsTest, PrintsTheMessageAsItIsNow) {
  const auto host = startLonelyHost({"--ifa", "6d92078a-8246-4ba4-ae5b-76104861e7dc"});
  EXPECT_TRUE(eventuallyPrints(*host, "\"ifa\":\"6d92078a-8246-4ba4-ae5b-76104861e7dc\"")) << host->output();
  EXPECT_TRUE(eventuallyPrints(*host, "\"bundleId\":\"com.example.KXHost\"")) << host->output();
  EXPECT_THAT(host->output(), HasSubstr("\"dnt\":0"));
}

TEST(HostCommandsTest, TellsTheLibraryWhoItIsAndWhatTheUserWants) {
  const auto host = startLonelyHost({"--application-id", "org.example.Other", "--tracking-limited"});
  EXPECT_TRUE(eventuallyPrints(*host, "\"bundleId\":\"org.example.Other\"")) << host->output();
  EXPECT_TRUE(eventuallyPrints(*host, "\"dnt\":1")) << host->output();
  EXPECT_THAT(host->output(), Not(HasSubstr("\"ifa\"")));
}

TEST(HostCommandsTest, TheLibrarysLogGoesToStandardError) {
  const auto host = startLonelyHost({"--debug"});
  EXPECT_TRUE(eventually([&host] {
    return host->errors().find("[KX Error] Error getting access token: ") != std::string::npos;
  })) << host->errors();
  EXPECT_EQ(host->output(), "");
}

// ---- Why nothing arrives

TEST(HostCommandsTest, ExplainsWhenItIsAsked) {
  const auto host = startLonelyHost();
  ASSERT_TRUE(eventually([&host] {
    host->write("e\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return host->output().find("Login: failed") != std::string::npos;
  })) << host->output();
  EXPECT_THAT(host->output(), HasSubstr("What to do:\n- The service could not be reached for the login."));
  EXPECT_THAT(host->output(), HasSubstr("API token: given\n"));
}

TEST(HostCommandsTest, ExplainsAtItsEndWhenItIsTold) {
  const auto host = startLonelyHost({"--explain", "--exit-after", "5.5"});
  EXPECT_EQ(host->exitCode(), 0);
  EXPECT_THAT(host->output(), HasSubstr("Advertising identifier: absent\n"));
  EXPECT_THAT(host->output(), HasSubstr("- There is no advertising identifier"));
}

TEST(HostCommandsTest, ExplainsAlsoWhenItIsEndedFromOutside) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const auto host = startLonelyHost({"--explain"});
    ASSERT_TRUE(eventually([&host] {
      host->write("e");
      host->write("\n");
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      return !host->output().empty();
    }));
    const std::size_t before = host->output().size();
    host->sendSignal(signal);
    EXPECT_EQ(host->exitCode(), 0);
    EXPECT_THAT(host->output().substr(before), HasSubstr("Publisher: made "));
  }
}

}  // namespace
}  // namespace kx
