#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/collector/WaitingMessages.h"

namespace kx::collector {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class WaitingMessagesTest : public ::testing::Test {
 protected:
  using Waiting = WaitingMessages<std::string>;

  Waiting waiting{{seconds(5), seconds(1), 3, 100}};
  Waiting::Time now{seconds(1000)};
  std::vector<std::string> outcomes;

  void take(const std::string &message, std::size_t size = 10) {
    waiting.take(
        message, size,
        [this, message](const StreamOutcome &outcome) {
          outcomes.push_back(message + " " + outcome.problem);
        },
        now);
  }
  Waiting::Id send(const std::string &expected) {
    auto next = waiting.next(now);
    EXPECT_TRUE(next && next->second == expected) << expected;
    return next ? next->first : 0;
  }
  void end(Waiting::Id id, const std::string &problem = "") {
    if (auto ended = waiting.end(id, now)) ended->acknowledged({problem});
  }
};

TEST_F(WaitingMessagesTest, AreSentOnceInTheOrderInWhichTheyCame) {
  take("a");
  take("b");
  send("a");
  send("b");
  EXPECT_FALSE(waiting.next(now));
  EXPECT_EQ(waiting.count(), 2u);
}

TEST_F(WaitingMessagesTest, EndInAnyOrder) {
  take("a");
  take("b");
  const auto first = send("a");
  const auto second = send("b");
  end(second);
  end(first, "no");
  end(first, "again");
  EXPECT_THAT(outcomes, ::testing::ElementsAre("b ", "a no"));
  EXPECT_EQ(waiting.count(), 0u);
  EXPECT_EQ(waiting.size(), 0u);
}

TEST_F(WaitingMessagesTest, AreTriedAgainWhenItIsTime) {
  take("a");
  const auto id = send("a");
  EXPECT_FALSE(waiting.tryAgain(id, "a", now + milliseconds(100)));
  EXPECT_FALSE(waiting.next(now + milliseconds(99)));
  now += milliseconds(100);
  EXPECT_EQ(send("a"), id);
  EXPECT_FALSE(waiting.next(now));
}

TEST_F(WaitingMessagesTest, AreGivenUpAfterTheirTime) {
  take("a");
  const auto id = send("a");
  now += seconds(5) - milliseconds(1);
  EXPECT_FALSE(waiting.giveUp(now));
  now += milliseconds(1);
  const auto ended = waiting.giveUp(now);
  ASSERT_TRUE(ended);
  EXPECT_FALSE(ended->message) << "whoever sends it has it";
  EXPECT_FALSE(waiting.giveUp(now));
  EXPECT_EQ(waiting.count(), 0u);
  EXPECT_EQ(waiting.tryAgain(id, "a", now), "a");
  EXPECT_FALSE(waiting.end(id, now));
}

TEST_F(WaitingMessagesTest, AreNotSentAfterTheyWereGivenUp) {
  take("a");
  take("b");
  const auto first = send("a");
  EXPECT_FALSE(waiting.tryAgain(first, "a", now + seconds(1)));
  now += seconds(5);
  EXPECT_TRUE(waiting.giveUp(now));
  EXPECT_TRUE(waiting.giveUp(now));
  EXPECT_FALSE(waiting.next(now));
}

TEST_F(WaitingMessagesTest, AreBoundedInNumber) {
  take("a");
  take("b");
  EXPECT_EQ(waiting.whyNot(10, now), "");
  take("c");
  EXPECT_EQ(waiting.whyNot(10, now), "too many messages are waiting for the stream");
  end(send("a"));
  EXPECT_EQ(waiting.whyNot(10, now), "");
}

TEST_F(WaitingMessagesTest, AreBoundedInSize) {
  take("a", 60);
  EXPECT_EQ(waiting.whyNot(40, now), "");
  EXPECT_EQ(waiting.whyNot(41, now), "too many messages are waiting for the stream");
  end(send("a"));
  EXPECT_EQ(waiting.whyNot(101, now), "");  // or it never would be taken
}

TEST_F(WaitingMessagesTest, GetNoCompanyWhileTheOldestWaitsTooLong) {
  take("a");
  now += milliseconds(999);
  take("b");
  EXPECT_EQ(waiting.whyNot(10, now), "");
  now += milliseconds(1);
  EXPECT_EQ(waiting.whyNot(10, now), "the stream is slow");
  end(send("a"));
  EXPECT_EQ(waiting.whyNot(10, now), "");
}

TEST_F(WaitingMessagesTest, SayWhenSomethingIsToBeDone) {
  EXPECT_FALSE(waiting.wakeUp(true));
  const auto start = now;
  take("a");
  EXPECT_LE(waiting.wakeUp(true), start);
  EXPECT_EQ(waiting.wakeUp(false), start + seconds(5));
  const auto id = send("a");
  EXPECT_EQ(waiting.wakeUp(true), start + seconds(5));
  EXPECT_FALSE(waiting.tryAgain(id, "a", start + seconds(1)));
  EXPECT_EQ(waiting.wakeUp(true), start + seconds(1));
  EXPECT_EQ(waiting.wakeUp(false), start + seconds(5));
}

TEST_F(WaitingMessagesTest, CanBeForgotten) {
  take("a");
  waiting.clear();
  EXPECT_EQ(waiting.count(), 0u);
  EXPECT_EQ(waiting.size(), 0u);
  EXPECT_FALSE(waiting.next(now));
  EXPECT_THAT(outcomes, ::testing::IsEmpty());
}

}  // namespace
}  // namespace kx::collector
