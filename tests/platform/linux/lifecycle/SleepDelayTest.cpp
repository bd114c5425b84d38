#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <memory>

#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/URLSession.h"
#include "tests/platform/linux/https/UnansweredAddress.h"
#include "tests/platform/linux/lifecycle/SleepTest.h"

// What is on its way when the system goes to sleep.

namespace kx {
namespace {

using std::chrono::milliseconds;

using SleepDelayTest = SleepTest;

TEST_F(SleepDelayTest, WhatIsOnItsWayDelaysSleepAfterItsTaskHasEnded) {
  std::shared_ptr<void> underWay;
  onBackground([&] {
    const auto task = application->beginBackgroundTaskWithName("task", nullptr);
    underWay = application->delaySleep();
    application->endBackgroundTask(task);
  });
  announceSleep();
  loopFor(milliseconds(100));
  EXPECT_EQ(logind.heldLocks(), 1U);
  std::thread([&] { underWay.reset(); }).join();
  EXPECT_TRUE(comesToHold(0));
  EXPECT_EQ(logind.requests.size(), 1U) << "it has been held all the time";
}

TEST_F(SleepDelayTest, TheLastOfSeveralThatAreOnTheirWayLetsTheSystemSleep) {
  std::vector<std::shared_ptr<void>> underWay;
  onBackground([&] {
    for (int i = 0; i < 3; ++i) underWay.push_back(application->delaySleep());
  });
  announceSleep();
  while (underWay.size() > 1) underWay.pop_back();
  loopFor(milliseconds(100));
  EXPECT_EQ(logind.heldLocks(), 1U);
  underWay.clear();
  EXPECT_TRUE(comesToHold(0));
}

TEST_F(SleepDelayTest, InTheBackgroundWhatIsOnItsWayDelaysSleepToo) {
  application->didEnterBackground();
  ASSERT_TRUE(comesToHold(0));
  auto underWay = application->delaySleep();
  ASSERT_TRUE(comesToHold(1));
  logind.prepareForSleep(true);
  loopFor(milliseconds(100));
  EXPECT_EQ(logind.heldLocks(), 1U);
  underWay.reset();
  EXPECT_TRUE(comesToHold(0));
}

TEST_F(SleepDelayTest, InTheForegroundWhatIsOnItsWayCostsTheMainThreadNothing) {
  const auto underWay = application->delaySleep();
  EXPECT_EQ(untilNextDue(), -1);
}

TEST_F(SleepDelayTest, ARequestOfTheProcesssDeviceIsOnItsWayUntilItHasEnded) {
  makeTheProcessesDevice();
  auto address = std::make_optional<UnansweredAddress>();
  const auto session = Platform::current().urlSessions().sessionWithDefaultConfiguration();
  URLRequest request(URL{address->url()});
  request.HTTPMethod = "POST";
  session->uploadTaskWithRequest(request, Data(), [](const auto &, const auto &) {})->resume();
  announceSleep();
  ASSERT_TRUE(comesToHold(1)) << "the fixture's application waits for nothing";
  loopFor(milliseconds(200));
  EXPECT_EQ(logind.heldLocks(), 1U);
  address.reset();
  EXPECT_TRUE(comesToHold(0));
}

TEST_F(SleepDelayTest, AForkedChildHoldsNoLock) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const pid_t child = fork();
  if (child == 0) {
    close(ends[1]);
    char byte = 0;
    _exit(read(ends[0], &byte, 1) == 0 ? 0 : 1);  // when the test closes the other end
  }
  ASSERT_GT(child, 0);
  EXPECT_EQ(logind.heldLocks(), 1U);
  announceSleep();
  EXPECT_TRUE(comesToHold(0)) << "the child holds it";
  logind.prepareForSleep(false);
  EXPECT_TRUE(comesToHold(1));
  close(ends[1]);
  close(ends[0]);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace kx
