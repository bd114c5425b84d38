#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <utility>

#include "tools/fleet/LoadPlan.h"

namespace kx::fleet {
namespace {

struct Wanted {
  bool isLogin;
  std::uint32_t device;
  std::uint8_t process;
  Time at;
};

class Sender : public LoadSender {
 public:
  bool sendLogin(std::uint32_t device, std::uint8_t process, Time now) override {
    all.push_back({true, device, process, now});
    return isWilling;
  }
  bool sendMessage(std::uint32_t device, std::uint8_t process, Time now) override {
    all.push_back({false, device, process, now});
    return isWilling;
  }
  void reportIsLost(Lost why) override { ++(why == Lost::noToken ? withoutToken : withoutIdentifier); }

  std::size_t logins() const {
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [](const Wanted &one) { return one.isLogin; }));
  }
  std::size_t messages() const { return all.size() - logins(); }

  bool isWilling = true;
  std::vector<Wanted> all;
  int withoutToken = 0;
  int withoutIdentifier = 0;
};

class LoadPlanTest : public testing::Test {
 protected:
  LoadPlanTest() {
    scenario.devices = 50;
    scenario.length = 7200;
    scenario.before = 3600;
    scenario.use.sessionsPerDay = 300;
    scenario.use.sessionLength = Quantiles(60);
  }

  FleetScenario scenario;
  Sender sender;
};

constexpr Time hour = 3'600'000;

TEST_F(LoadPlanTest, SendsNothingOfBeforeItsBeginning) {
  LoadPlan plan(scenario, 1800);
  EXPECT_EQ(plan.from(), hour + hour / 2);
  plan.runUntil(2 * hour, sender);
  ASSERT_FALSE(sender.all.empty());
  for (const Wanted &one : sender.all) {
    EXPECT_GE(one.at, plan.from());
    EXPECT_LT(one.at, 2 * hour);
  }
  EXPECT_GT(sender.withoutIdentifier, 0);
}

TEST_F(LoadPlanTest, GoesOnWhereItWas) {
  LoadPlan whole(scenario, 0);
  whole.runUntil(2 * hour, sender);
  Sender parts;
  LoadPlan plan(scenario, 0);
  for (Time until = hour; until < 2 * hour; until += 777) plan.runUntil(until, parts);
  plan.runUntil(2 * hour, parts);
  ASSERT_EQ(parts.all.size(), sender.all.size());
  for (std::size_t i = 0; i < parts.all.size(); ++i) {
    EXPECT_EQ(parts.all[i].at, sender.all[i].at);
    EXPECT_EQ(parts.all[i].device, sender.all[i].device);
  }
}

TEST_F(LoadPlanTest, SendsMessagesOnceALoginIsAnswered) {
  scenario.use.newProcess = 1;
  scenario.use.withoutIdentifier = 0;
  const auto play = [this](bool isAnswered) {
    LoadPlan plan(scenario, 0);
    Sender all;
    std::size_t seen = 0;
    for (Time until = hour; until < 2 * hour; until += 500) {
      plan.runUntil(until, all);
      for (; seen < all.all.size(); ++seen) {
        const Wanted one = all.all[seen];
        if (one.isLogin) plan.loginIsAnswered(one.device, one.process, isAnswered, until);
      }
    }
    return all;
  };
  const Sender good = play(true);
  EXPECT_GT(good.messages(), good.logins());
  const Sender bad = play(false);
  EXPECT_GT(bad.withoutToken, static_cast<int>(good.messages()) / 2);
  EXPECT_LT(bad.messages(), 100U) << "of those that had a token before";
}

TEST_F(LoadPlanTest, TakesWhatIsNotSentForAFailure) {
  scenario.use.newProcess = 1;
  scenario.use.sessionLength = Quantiles(1200);
  sender.isWilling = false;
  LoadPlan plan(scenario, 0);
  plan.runUntil(2 * hour, sender);
  std::map<std::pair<std::uint32_t, std::uint8_t>, Time> last;
  int retries = 0;
  for (const Wanted &one : sender.all) {
    if (!one.isLogin) continue;
    const auto [former, isFirst] = last.try_emplace({one.device, one.process}, one.at);
    if (isFirst) continue;
    EXPECT_GE(one.at - former->second, 300'000) << "the library's delay";
    former->second = one.at;
    ++retries;
  }
  EXPECT_GT(retries, 20);
}

TEST_F(LoadPlanTest, LogsInAgainWhenATokenIsRefused) {
  scenario.use.newProcess = 0;
  scenario.use.sessionLength = Quantiles(7200);  // nobody is suspended
  LoadPlan plan(scenario, 0);
  plan.runUntil(hour + hour / 2, sender);
  const auto found =
      std::find_if(sender.all.rbegin(), sender.all.rend(), [](const Wanted &one) { return !one.isLogin; });
  ASSERT_NE(found, sender.all.rend());
  const Wanted message = *found;
  const std::size_t before = sender.logins();
  plan.tokenIsRefused(message.device, static_cast<std::uint8_t>(message.process + 1), hour + hour / 2);
  plan.runUntil(hour + hour / 2 + 1, sender);
  EXPECT_EQ(sender.logins(), before) << "another process's";
  plan.tokenIsRefused(message.device, message.process, hour + hour / 2 + 1);
  plan.runUntil(hour + hour / 2 + 2, sender);
  EXPECT_EQ(sender.logins(), before + 1);
}

TEST_F(LoadPlanTest, KnowsWhoUsesATokenOfBefore) {
  scenario.use.withoutIdentifier = 0;
  const auto devices = LoadPlan::devicesWithToken(scenario, 1800, 2 * hour);
  EXPECT_GT(devices.size(), 10U);
  EXPECT_TRUE(LoadPlan::devicesWithToken(scenario, 1800, hour + hour / 2).empty()) << "no time to use it";
  // A process that starts later has a token of its own.
  scenario.use.newProcess = 1;
  const auto fewer = LoadPlan::devicesWithToken(scenario, 1800, 2 * hour);
  EXPECT_LT(fewer.size(), devices.size() / 2);
}

}  // namespace
}  // namespace kx::fleet
