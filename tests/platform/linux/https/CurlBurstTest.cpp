#include <sys/resource.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "tests/platform/linux/https/FullListener.h"
#include "tests/platform/linux/https/HTTPSTest.h"
#include "tests/platform/linux/https/InterposedCalls.h"

namespace kx {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::Ge;
using ::testing::Le;
using ::testing::Lt;

constexpr std::size_t connectionsOfAHost = 4;

/// More requests than can run at once.
class CurlBurstTest : public HTTPSTest {
 protected:
  static std::size_t countIn(const char *directory) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
  }
  static std::size_t descriptors() { return countIn("/proc/self/fd"); }
  static std::size_t threads() { return countIn("/proc/self/task"); }

  /// Waits until so many requests have been read, and a while for those that should not come.
  void expectRequestsUnderWay(std::size_t count) {
    EXPECT_TRUE(eventually([&] { return server.requests().size() >= count; }));
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ(server.requests().size(), count);
  }

  /// Has the server take its time for each request.
  void answerEachAfter(seconds time) {
    server.setScript([time](TestConnection &connection) {
      connection.handshake();
      while (true) {
        connection.readRequest();
        std::this_thread::sleep_for(time);
        connection.answer(200);
      }
    });
  }

  std::string path(std::size_t number) const { return server.url("/" + std::to_string(number)); }
};

TEST_F(CurlBurstTest, AnswersTenThousandAtOnceAndLeavesNothingBehind) {
  settings.linger = milliseconds(0);
  const std::size_t threadsBefore = threads();
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_TRUE(eventually([] { return threadsNamed("kx-transport") == 0; }));
  EXPECT_TRUE(eventually([this] { return server.isIdle(); }));
  const std::size_t descriptorsBefore = descriptors();

  constexpr std::size_t count = 10'000;
  for (std::size_t i = 0; i < count; ++i) task(request(server.url()))->resume();
  std::size_t mostDescriptors = 0;
  for (std::size_t seen = outcomesCount(); seen < count + 1 && waitForMoreOutcomes(seen);
       seen = outcomesCount()) {
    mostDescriptors = std::max(mostDescriptors, descriptors());
  }
  std::size_t answered = 0;
  for (const auto &outcome : outcomes()) answered += outcome.status() == 200 ? 1U : 0U;
  EXPECT_EQ(answered, count + 1);
  EXPECT_LE(server.connections(), 1 + static_cast<int>(connectionsOfAHost));
  // The server's ends of the connections are here, too.
  EXPECT_THAT(mostDescriptors, Le(descriptorsBefore + 2 * connectionsOfAHost + 8));
  EXPECT_TRUE(eventually([=] { return descriptors() == descriptorsBefore; }));
  EXPECT_TRUE(eventually([=] { return threads() == threadsBefore; }));
}

TEST_F(CurlBurstTest, LosesNothingWhereThereAreFewDescriptors) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = 64;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  constexpr std::size_t count = 2000;
  for (std::size_t i = 0; i < count; ++i) task(request(server.url()))->resume();
  for (const auto &outcome : waitForOutcomes(count)) EXPECT_EQ(outcome.status(), 200) << outcome.errorText();
}

TEST_F(CurlBurstTest, RunsFourRequestsAtATime) {
  std::atomic<bool> go{false};
  server.setScript([&go](TestConnection &connection) {
    connection.handshake();
    while (true) {
      connection.readRequest();
      while (!go) std::this_thread::sleep_for(milliseconds(1));
      connection.answer(200);
    }
  });
  for (std::size_t i = 0; i < 20; ++i) task(request(path(i)))->resume();
  expectRequestsUnderWay(connectionsOfAHost);
  EXPECT_EQ(threadsNamed("kx-transport"), 1);
  go = true;
  for (const auto &outcome : waitForOutcomes(20)) EXPECT_EQ(outcome.status(), 200) << outcome.errorText();
  EXPECT_EQ(server.connections(), static_cast<int>(connectionsOfAHost));
}

TEST_F(CurlBurstTest, BeginsThemInTheOrderInWhichTheyCame) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.stall();  // which leaves one connection for the others
  });
  for (std::size_t i = 1; i < connectionsOfAHost; ++i) task(request(server.url("/held")))->resume();
  expectRequestsUnderWay(connectionsOfAHost - 1);
  server.setScript(&TestServer::serve);
  for (std::size_t i = 0; i < 100; ++i) task(request(path(i)))->resume();
  waitForOutcomes(100);
  for (std::size_t i = 0; i < 100; ++i) {
    const std::string sent = server.requests().at(connectionsOfAHost - 1 + i);
    EXPECT_EQ(sent.substr(0, sent.find(" HTTP")), "POST /" + std::to_string(i));
  }
  server.interruptAll();
  waitForOutcomes(100 + connectionsOfAHost - 1);
}

TEST_F(CurlBurstTest, FailsAtOnceWhenTooManyWait) {
  EXPECT_GT(CurlSettings().maximumWaiting, 10'000u);
  settings.maximumWaiting = 10;
  std::atomic<bool> go{false};
  server.setScript([&go](TestConnection &connection) {
    connection.handshake();
    while (true) {
      connection.readRequest();
      while (!go) std::this_thread::sleep_for(milliseconds(1));
      connection.answer(200);
    }
  });
  for (std::size_t i = 0; i < connectionsOfAHost; ++i) task(request(path(i)))->resume();
  expectRequestsUnderWay(connectionsOfAHost);
  for (std::size_t i = 0; i < 13; ++i) task(request(path(i)))->resume();
  const auto refused = waitForOutcomes(3);
  EXPECT_EQ(refused.size(), 3u);
  for (const auto &outcome : refused) {
    EXPECT_EQ(outcome.errorText(), "Too many requests are waiting");
    EXPECT_EQ(outcome.thread, dispatch.workerThread());
  }
  go = true;
  const auto all = waitForOutcomes(connectionsOfAHost + 13);
  for (std::size_t i = 3; i < all.size(); ++i) EXPECT_EQ(all[i].status(), 200) << all[i].errorText();
}

TEST_F(CurlBurstTest, GivesUpThoseThatWaitWhenNothingGoesForward) {
  settings.timeoutWithoutProgress = seconds(1);
  // Nothing comes of the name, not even in the time that a request has.
  for (std::size_t i = 0; i < 2000; ++i) task(request("https://stalled.invalid/"))->resume();
  for (const auto &outcome : waitForOutcomes(2000)) {
    EXPECT_EQ(outcome.errorCode(), timedOut);
    EXPECT_THAT(outcome.duration, AllOf(Ge(milliseconds(995)), Lt(seconds(15))));
  }
  EXPECT_THAT(InterposedCalls::stalledResolutions(),
              AllOf(Ge(connectionsOfAHost), Le(3 * connectionsOfAHost)));
}

TEST_F(CurlBurstTest, StartsNoneWhoseTimeIsOver) {
  settings.timeoutForResource = seconds(1);
  for (std::size_t i = 0; i < 2000; ++i) task(request("https://stalled.invalid/"))->resume();
  for (const auto &outcome : waitForOutcomes(2000)) EXPECT_EQ(outcome.errorCode(), timedOut);
  // They were made one after the other, so that some have their turn while their time lasts.
  EXPECT_THAT(InterposedCalls::stalledResolutions(), Le(500));
}

TEST_F(CurlBurstTest, GivesUpOneThatWaitsWhileThoseBeforeItHaveTimeLeft) {
  settings.timeoutWithoutProgress = seconds(4);
  // Nothing wakes curl while it connects to this one, unlike while it looks up a name.
  const FullListener listener;
  const auto resumeOnes = [&](std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) task(request(listener.url()))->resume();
  };
  resumeOnes(connectionsOfAHost);
  std::this_thread::sleep_for(seconds(2));
  // All but the last of these get their turn two seconds later, which gives them four more.
  resumeOnes(connectionsOfAHost + 1);
  const auto all = waitForOutcomes(2 * connectionsOfAHost + 1);  // in the order in which they ended
  for (const auto &outcome : all) EXPECT_EQ(outcome.errorCode(), timedOut);
  EXPECT_LT((all[connectionsOfAHost].duration + seconds(1)).count(),
            all[connectionsOfAHost + 1].duration.count());
}

TEST_F(CurlBurstTest, LetsThemWaitWhileOthersGoForward) {
  settings.timeoutWithoutProgress = seconds(3);
  answerEachAfter(seconds(1));
  for (std::size_t i = 0; i < 20; ++i) task(request(path(i)))->resume();
  const auto all = waitForOutcomes(20);
  for (const auto &outcome : all) EXPECT_EQ(outcome.status(), 200) << outcome.errorText();
  EXPECT_THAT(all.back().duration, Ge(seconds(4)));
}

TEST_F(CurlBurstTest, LetsThemWaitAnewWhenOneHasEnded) {
  settings.timeoutWithoutProgress = seconds(3);
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    std::this_thread::sleep_for(seconds(2));
    connection.answer(200);
  });
  for (std::size_t i = 0; i < connectionsOfAHost; ++i) task(request(path(i)))->resume();
  // Of these four run then, without any progress, and one waits on.
  for (std::size_t i = 0; i <= connectionsOfAHost; ++i) task(request("https://stalled.invalid/"))->resume();
  const auto all = waitForOutcomes(2 * connectionsOfAHost + 1);
  for (std::size_t i = connectionsOfAHost; i < all.size(); ++i) {
    EXPECT_EQ(all[i].errorCode(), timedOut);
    EXPECT_THAT(all[i].duration, Ge(milliseconds(4900)));
  }
}

TEST_F(CurlBurstTest, EndsWaitingToo) {
  settings.timeoutForResource = seconds(3);
  answerEachAfter(seconds(2));
  for (std::size_t i = 0; i < 12; ++i) task(request(path(i)))->resume();
  const auto all = waitForOutcomes(12);
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i].errorCode(), i < connectionsOfAHost ? 0 : timedOut) << i;
    EXPECT_THAT(all[i].duration, Lt(seconds(15)));
  }
}

}  // namespace
}  // namespace kx
