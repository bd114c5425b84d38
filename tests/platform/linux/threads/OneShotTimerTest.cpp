#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>

#include "platform/linux/threads/OneShotTimer.h"
#include "tests/platform/linux/MainLoop.h"

namespace kx {
namespace {

using std::chrono::milliseconds;

class OneShotTimerTest : public testing::Test {
 protected:
  /// Lets the loop go on for long enough that what is due soon would come.
  void runOn() const {
    OneShotTimer end(g_main_context_default());
    bool ended = false;
    end.schedule(milliseconds(50), [&ended] { ended = true; });
    EXPECT_TRUE(thread.runUntil([&ended] { return ended; }));
  }

  const MainThread thread;
  int fired = 0;
  std::optional<OneShotTimer> timer{std::in_place, g_main_context_default()};
};

TEST_F(OneShotTimerTest, FiresOnceAndNotBeforeItsTime) {
  const auto start = std::chrono::steady_clock::now();
  timer->schedule(milliseconds(20), [this] { ++fired; });
  EXPECT_TRUE(timer->isScheduled());
  EXPECT_TRUE(thread.runUntil([this] { return fired > 0; }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(19));
  EXPECT_FALSE(timer->isScheduled());
  runOn();
  EXPECT_EQ(fired, 1);
}

TEST_F(OneShotTimerTest, FiresInPlaceOfWhatItWasScheduledForBefore) {
  timer->schedule(milliseconds(1), [this] { fired += 100; });
  timer->schedule(milliseconds(2), [this] { ++fired; });
  runOn();
  EXPECT_EQ(fired, 1);
}

TEST_F(OneShotTimerTest, ScheduledForLaterItDoesNotFireAtTheTimeBefore) {
  timer->schedule(milliseconds(1), [this] { ++fired; });
  timer->schedule(std::chrono::hours(1), [this] { ++fired; });
  runOn();
  EXPECT_EQ(fired, 0);
  EXPECT_TRUE(timer->isScheduled());
}

TEST_F(OneShotTimerTest, NeverFiresWhenItIsCancelledOrGone) {
  timer->schedule(milliseconds(1), [this] { ++fired; });
  timer->cancel();
  EXPECT_FALSE(timer->isScheduled());
  timer->schedule(milliseconds(1), [this] { ++fired; });
  timer.reset();
  runOn();
  EXPECT_EQ(fired, 0);
}

TEST_F(OneShotTimerTest, MayBeScheduledAgainByWhatItDoes) {
  timer->schedule(milliseconds(1), [this] {
    ++fired;
    timer->schedule(milliseconds(1), [this] { ++fired; });
  });
  EXPECT_TRUE(thread.runUntil([this] { return fired == 2; }));
  runOn();
  EXPECT_EQ(fired, 2);
  EXPECT_FALSE(timer->isScheduled());
}

TEST_F(OneShotTimerTest, MayGoAwayByWhatItDoes) {
  const auto held = std::make_shared<int>(0);
  timer->schedule(milliseconds(1), [this, held] {
    timer.reset();
    ++*held;  // what was handed over lives on
    ++fired;
  });
  EXPECT_TRUE(thread.runUntil([this] { return fired == 1; }));
  EXPECT_EQ(*held, 1);
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(OneShotTimerTest, IsDoneAlsoWhenWhatItDoesThrows) {
  testing::internal::CaptureStderr();
  timer->schedule(milliseconds(1), [this] {
    ++fired;
    throw std::runtime_error("the reason");
  });
  EXPECT_TRUE(thread.runUntil([this] { return fired > 0; }));
  runOn();
  EXPECT_EQ(fired, 1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("the reason"), std::string::npos);
}

}  // namespace
}  // namespace kx
