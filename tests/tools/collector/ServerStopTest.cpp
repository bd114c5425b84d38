// The server's end: what has come is answered, nothing else is waited for.

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/support/ChildProcess.h"
#include "tests/tools/collector/Requests.h"
#include "tests/tools/collector/ServerFixture.h"

namespace kx::collector {
namespace {

using ServerStopTest = ServerTest;

TEST_F(ServerStopTest, LetsGoOfThoseWhoAskNothing) {
  limits.timeout = std::chrono::hours(1);  // it is not that which ends them
  const auto idle = connect();
  const auto known = connect();
  ASSERT_TRUE(known->exchange(loginRequest()));
  stop(std::chrono::hours(1));
  idle->waitForEnd();
  known->waitForEnd();
  EXPECT_TRUE(eventually([this] { return hasStopped(); }));
  EXPECT_TRUE(connect()->error);
}

TEST_F(ServerStopTest, AnswersWhatHasCome) {
  const auto waiting = connect();
  log.hold();
  waiting->write(wireText(loginRequest()));
  EXPECT_TRUE(eventually([this] { return log.held() == 1; }));
  stop(std::chrono::hours(1));
  EXPECT_TRUE(eventually([this] { return connect()->error.failed(); }));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(hasStopped()) << "the answer was not waited for";
  log.release();
  const auto response = waiting->read();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->result_int(), 200u);
  EXPECT_FALSE(response->keep_alive());
  waiting->waitForEnd();
  EXPECT_TRUE(eventually([this] { return hasStopped(); }));
}

TEST_F(ServerStopTest, WaitsForNothingThatAFaultHoldsBack) {
  settings.login.delay = std::chrono::hours(1);
  const auto waiting = connect();
  waiting->write(wireText(loginRequest()));
  EXPECT_TRUE(eventually([this] { return log.answers().size() == 1; }));
  stop(std::chrono::hours(1));
  waiting->waitForEnd();
  EXPECT_TRUE(eventually([this] { return hasStopped(); }));
}

TEST_F(ServerStopTest, WaitsNoLongerThanItIsTold) {
  const auto waiting = connect();
  log.hold();
  waiting->write(wireText(loginRequest()));
  EXPECT_TRUE(eventually([this] { return log.held() == 1; }));
  stop(std::chrono::milliseconds(50));
  EXPECT_TRUE(eventually([this] { return hasStopped(); }));
  log.release();
  EXPECT_TRUE(waiting->read());
}

}  // namespace
}  // namespace kx::collector
