#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <set>

#include "platform/linux/facts/LinuxSystemCalls.h"
#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

TEST(LinuxClock, ShowsTheWallClock) {
  const auto seconds = [](auto time) {
    return std::chrono::duration<double>(time.time_since_epoch()).count();
  };
  const double before = seconds(std::chrono::system_clock::now());
  const double shown = LinuxClock().timeIntervalSince1970();
  const double after = seconds(std::chrono::system_clock::now());
  EXPECT_GE(shown, before - 1e-6);  // microseconds, cut off
  EXPECT_LE(shown, after);
}

TEST(LinuxSystemName, IsTheMachineOfUname) {
  ChildProcess uname({"/bin/uname", "-m"});
  ASSERT_EQ(uname.exitCode(), 0);
  EXPECT_EQ(*LinuxSystemName().machine() + "\n", uname.output());
}

TEST(LinuxProcessInfo, GivesANewUUIDEachTime) {
  LinuxProcessInfo processInfo;
  std::set<std::string> given;
  for (int i = 0; i < 1000; ++i) {
    const std::string text = processInfo.globallyUniqueString();
    EXPECT_THAT(text,
                testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
    given.insert(text);
  }
  EXPECT_EQ(given.size(), 1000U);
}

TEST(LinuxProcessInfo, GivesOthersInAForkedProcess) {
  LinuxProcessInfo processInfo;
  processInfo.globallyUniqueString();
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    const std::string text = processInfo.globallyUniqueString();
    _exit(write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  std::string childs(36, '\0');
  EXPECT_EQ(read(ends[0], childs.data(), childs.size()), 36);
  EXPECT_NE(processInfo.globallyUniqueString(), childs);
  int status = 1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace kx
