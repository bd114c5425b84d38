#include <gtest/gtest.h>

#include <set>

#include "tools/fleet/FleetService.h"

namespace kx::fleet {
namespace {

using Outcome = Answer::Outcome;
using Of = FleetScenario::Outage::Of;

class FleetServiceTest : public testing::Test {
 protected:
  FleetServiceTest() { scenario.latency = Quantiles(0.1); }

  /// Its day begins after `begins` milliseconds.
  FleetService service() const { return FleetService(scenario, 1, begins); }
  void hasOutage(double at, double length, bool silent, Of of = Of::everything) {
    scenario.outages.push_back({at, length, silent, of});
  }

  static constexpr Time begins = 1'000'000;
  FleetScenario::Service scenario;
};

bool succeeds(const Answer &answer) {
  return answer.outcome == Outcome::accepted;
}

TEST_F(FleetServiceTest, AnswersAfterItsLatency) {
  const Answer answer = service().login(7, begins);
  EXPECT_EQ(answer.outcome, Outcome::accepted);
  EXPECT_EQ(answer.after, 100);
  EXPECT_EQ(service().message(7, begins, 0).after, 100);
}

TEST_F(FleetServiceTest, DrawsLatenciesAsTheyAreSpread) {
  scenario.latency = Quantiles({{0, 0.01}, {0.5, 0.02}, {1, 10}});
  FleetService service = this->service();
  int quick = 0;
  Time longest = 0;
  for (std::uint32_t device = 0; device < 1000; ++device) {
    const Time after = service.login(device, begins).after;
    EXPECT_GE(after, 10);
    if (after <= 20) ++quick;
    longest = std::max(longest, after);
  }
  EXPECT_NEAR(quick, 500, 60);
  EXPECT_GT(longest, 9000);
  EXPECT_LE(longest, 10'000);
}

TEST_F(FleetServiceTest, FailsInAnOutageAndOnlyThen) {
  hasOutage(10, 5, /*silent=*/false);
  FleetService service = this->service();
  EXPECT_EQ(service.login(1, begins + 9'999).outcome, Outcome::accepted);
  const Answer failure = service.login(1, begins + 10'000);
  EXPECT_EQ(failure.outcome, Outcome::failed);
  EXPECT_EQ(failure.after, 100);
  EXPECT_EQ(service.message(1, begins + 14'999, 0).outcome, Outcome::failed);
  EXPECT_EQ(service.message(1, begins + 15'000, 0).outcome, Outcome::accepted);
}

TEST_F(FleetServiceTest, IsGivenUpByTheLibraryWhereItIsSilent) {
  hasOutage(10, 5, /*silent=*/true);
  EXPECT_EQ(service().login(1, begins + 10'000).after, 60'000);
}

TEST_F(FleetServiceTest, MayFailForOneKindOfRequests) {
  hasOutage(10, 5, /*silent=*/false, Of::logins);
  hasOutage(20, 5, /*silent=*/false, Of::messages);
  FleetService service = this->service();
  EXPECT_FALSE(succeeds(service.login(1, begins + 12'000)));
  EXPECT_TRUE(succeeds(service.message(1, begins + 12'000, 0)));
  EXPECT_TRUE(succeeds(service.login(1, begins + 22'000)));
  EXPECT_FALSE(succeeds(service.message(1, begins + 22'000, 0)));
}

TEST_F(FleetServiceTest, RefusesAllTokensOfBefore) {
  scenario.refusals = {10};
  FleetService service = this->service();
  EXPECT_TRUE(succeeds(service.message(1, begins + 9'999, begins)));
  EXPECT_EQ(service.message(1, begins + 10'000, begins).outcome, Outcome::refused);
  EXPECT_EQ(service.message(1, begins + 80'000, begins + 9'999).outcome, Outcome::refused);
  EXPECT_TRUE(succeeds(service.message(1, begins + 80'000, begins + 10'000)));
}

TEST_F(FleetServiceTest, RefusesTokensThatHaveLivedTheirLives) {
  scenario.tokenLife = 60;
  FleetService service = this->service();
  EXPECT_TRUE(succeeds(service.message(1, begins + 59'999, begins)));
  EXPECT_EQ(service.message(1, begins + 60'000, begins).outcome, Outcome::refused);
}

TEST_F(FleetServiceTest, SpreadsTheLivesOfTokens) {
  scenario.tokenLife = 100;
  scenario.tokenLifeSpread = 0.5;
  FleetService service = this->service();
  const auto refusedAfter = [&](Time after) {
    int refused = 0;
    for (std::uint32_t device = 0; device < 1000; ++device) {
      const bool isRefused = !succeeds(service.message(device, begins + after, begins));
      refused += isRefused ? 1 : 0;
      EXPECT_EQ(isRefused, !succeeds(service.message(device, begins + after, begins)));  // it is one life
    }
    return refused;
  };
  EXPECT_EQ(refusedAfter(50'000 - 1), 0);
  EXPECT_NEAR(refusedAfter(75'000), 250, 50);
  EXPECT_NEAR(refusedAfter(100'000), 500, 60);
  EXPECT_EQ(refusedAfter(150'000), 1000);
}

class FleetServiceWithLittleToGive : public FleetServiceTest {
 protected:
  FleetServiceWithLittleToGive() {
    scenario.capacity.emplace();
    scenario.capacity->perSecond = 10;  // 100 ms each
    scenario.capacity->loginCost = 3;
  }
};

TEST_F(FleetServiceWithLittleToGive, LetsWaitWhatComesTooFast) {
  FleetService service = this->service();
  EXPECT_EQ(service.message(1, begins, 0).after, 100);
  EXPECT_EQ(service.message(2, begins, 0).after, 200);
  EXPECT_EQ(service.login(3, begins + 50).after, 250);           // after both
  EXPECT_EQ(service.message(4, begins + 100, 0).after, 500);     // a login costs three
  EXPECT_EQ(service.message(5, begins + 60'000, 0).after, 100);  // it has come to rest
}

TEST_F(FleetServiceWithLittleToGive, IsGivenUpAfterAMinuteAndWorksAllTheSame) {
  FleetService service = this->service();
  for (std::uint32_t device = 0; device < 599; ++device)
    ASSERT_TRUE(succeeds(service.message(device, begins, 0))) << device;
  const Answer last = service.message(599, begins, 0);
  EXPECT_EQ(last.outcome, Outcome::failed);
  EXPECT_EQ(last.after, 60'000);
  EXPECT_EQ(service.message(600, begins + 50'000, 0).after, 100 + 10'000);
}

TEST_F(FleetServiceWithLittleToGive, ShedsWhatWouldWaitTooLong) {
  scenario.capacity->shedLoginsAbove = 0.2;
  scenario.capacity->shedMessagesAbove = 0.5;
  FleetService service = this->service();
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(succeeds(service.message(1, begins, 0)));
  const Answer login = service.login(2, begins);  // it would wait for 300 ms
  EXPECT_EQ(login.outcome, Outcome::failed);
  EXPECT_EQ(login.after, 100);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(succeeds(service.message(3, begins, 0)));
  EXPECT_EQ(service.message(4, begins, 0).outcome, Outcome::failed);
  EXPECT_TRUE(succeeds(service.message(5, begins + 100, 0)));
}

TEST_F(FleetServiceWithLittleToGive, MaySpreadTheAnswersToLoginsThatItSheds) {
  scenario.capacity->shedLoginsAbove = 0;
  scenario.capacity->spreadShedLogins = 50;
  FleetService service = this->service();
  service.message(0, begins, 0);
  std::set<Time> answers;
  for (std::uint32_t device = 1; device <= 100; ++device) {
    const Answer answer = service.login(device, begins);
    EXPECT_EQ(answer.outcome, Outcome::failed);
    EXPECT_GE(answer.after, 100);
    EXPECT_LE(answer.after, 50'100);
    answers.insert(answer.after);
  }
  EXPECT_GT(answers.size(), 90u);
  EXPECT_GT(*answers.rbegin() - *answers.begin(), 40'000);
}

}  // namespace
}  // namespace kx::fleet
