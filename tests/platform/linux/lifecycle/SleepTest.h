#pragma once

#include <cstddef>

#include "KXPublisher/platform/Platform.h"
#include "tests/platform/linux/lifecycle/FakeLogind.h"
#include "tests/platform/linux/lifecycle/LifecycleTest.h"

namespace kx {

/// An application in the foreground, and a logind that does as it should.
class SleepTest : public LifecycleTest {
 protected:
  SleepTest() {
    EXPECT_TRUE(loopUntil([this] { return isReady(); }));
  }

  /// Whether the lock and the delay have arrived: no answer is waited for, each of which has a time limit.
  bool isReady() { return logind.heldLocks() == 1 && logind.delaysRead == 1 && untilNextDue() == -1; }
  bool comesTo(std::size_t notifications) {
    return loopUntil([&] { return posted.size() == notifications; });
  }
  bool comesToHold(std::size_t locks) {
    return loopUntil([&] { return logind.heldLocks() == locks; });
  }
  /// The log makes the process's own device, whose application follows sleep, too: it had better be there
  /// before what is logged.
  void makeTheProcessesDevice() {
    const auto delaysRead = logind.delaysRead;
    Platform::current();
    ASSERT_TRUE(loopUntil(
        [&] { return logind.heldLocks() == 2 && logind.delaysRead > delaysRead && untilNextDue() == -1; }));
  }
  /// Has logind announce sleep, and waits until the application has heard of it.
  void announceSleep() {
    logind.prepareForSleep(true);
    ASSERT_TRUE(comesTo(posted.size() + 1));
  }

  FakeLogind logind{bus};
};

}  // namespace kx
