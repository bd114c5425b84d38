#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <set>
#include <sstream>

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

TEST(LinuxInterfaceList, ListsTheLoopbackInterfaceLikeTheSystemsOwnTool) {
  ChildProcess ip({"/bin/ip", "-4", "-o", "address", "show", "dev", "lo"});
  ASSERT_EQ(ip.exitCode(), 0);
  std::vector<std::string> expected;
  std::istringstream lines(ip.output());
  for (std::string line; std::getline(lines, line);) {
    const std::size_t begin = line.find("inet ") + 5;
    expected.push_back(line.substr(begin, line.find('/') - begin));
  }
  ASSERT_THAT(expected, testing::Contains("127.0.0.1"));

  std::vector<std::string> listed;
  for (const InterfaceAddress &entry : LinuxInterfaceList().getifaddrs()) {
    EXPECT_FALSE(entry.name.empty());
    if (entry.name != "lo" || entry.family != AddressFamily::inet) continue;
    std::ostringstream text;
    const auto &bytes = entry.bytesAfterPort;
    text << +bytes[0] << '.' << +bytes[1] << '.' << +bytes[2] << '.' << +bytes[3];
    listed.push_back(text.str());
  }
  EXPECT_EQ(listed, expected);
}

TEST(LinuxInterfaceList, GivesNoBytesOfOtherFamiliesAndTheFlowInformationOfIPv6) {
  bool linkLayerSeen = false;
  for (const InterfaceAddress &entry : LinuxInterfaceList().getifaddrs()) {
    if (entry.family == AddressFamily::inet) continue;
    linkLayerSeen = linkLayerSeen || entry.family == AddressFamily::other;
    EXPECT_EQ(entry.bytesAfterPort, (std::array<std::uint8_t, 4>{})) << entry.name;
  }
  EXPECT_TRUE(linkLayerSeen);  // the kernel lists each interface's own record first
}

}  // namespace
}  // namespace kx
