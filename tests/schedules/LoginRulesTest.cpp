#include <gtest/gtest.h>

#include <KXPublisher/KXPublisher.hpp>
#include <optional>

#include "KXPublisher/platform/simulated/SimulatedScope.h"
#include "KXPublisher/publisher/KXLogger.h"
#include "KXPublisher/transport/KXNetworking.h"

// What holds between the threads of a login only because things are done in their order. Each test has a
// schedule that fails when two lines change places.

namespace kx {
namespace {

using Service = SimulatedCollectionService;

constexpr std::uint64_t seeds = 2000;

/// A device that has its token and all its facts, whatever the seed: what follows is what is tested.
class LoginRules {
 public:
  explicit LoginRules(std::uint64_t seed) : scope(seed) {
    device.scheduler.setBackgroundTasksRunAtOnce(0);
    KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
    device.advance(1);
    device.service.latency = 0.25;  // such numbers add up without an error
  }

  KXNetworking &networking() { return *KXLogger::sharedInstanceWithApiToken({}, {})->kxNetworking(); }

  /// Sends a message that is answered with 403 after so many seconds.
  void sendRefusedAfter(double latency) {
    SimulatedReply refusal = SimulatedReply::status(403);
    refusal.latency = latency;
    device.service.script(Service::messagePath, {refusal});
    networking().sendData({{"ifa", "1"}});
  }

  SimulatedScope scope;
  SimulatedPlatform &device = scope.device;
};

TEST(LoginRules, AFailuresDelayIsStoredBeforeAnotherLoginIsAllowed) {
  for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
    LoginRules rules(seed);
    rules.device.service.script(Service::loginPath, {SimulatedReply::status(500)});
    rules.sendRefusedAfter(0.25);  // its login fails ...
    rules.sendRefusedAfter(0.5);   // ... at the moment at which this one asks for another
    rules.device.advance(299);
    ASSERT_EQ(rules.device.service.logins().size(), 2u) << "seed " << seed;
    rules.device.advance(2);
    ASSERT_EQ(rules.device.service.logins().size(), 3u) << "seed " << seed;
  }
}

/// Each reading is later than the one before, as on a device on which everything takes its time.
class TickingClock : public Clock {
 public:
  explicit TickingClock(SimulatedScheduler &scheduler) : scheduler_(scheduler) {}

  double timeIntervalSince1970() override {
    time_ += 0.001;
    if (scheduler_.runningTask() == refusalsTask && !requestTime) requestTime = time_;
    return time_;
  }

  std::uint64_t refusalsTask = 0;     ///< the task in which a refusal asks for a new token ...
  std::optional<double> requestTime;  ///< ... and the time that it reads for that

 private:
  SimulatedScheduler &scheduler_;
  double time_ = 1800000000;  // later than when the first token came
};

class ListeningConsole : public Console {
 public:
  ListeningConsole(SimulatedScheduler &scheduler, TickingClock &clock)
      : scheduler_(scheduler), clock_(clock) {}

  void log(const std::string &line) override {
    if (line.find("Calling updateAccessToken:") == std::string::npos) return;
    clock_.refusalsTask = scheduler_.runningTask();
    clock_.requestTime = std::nullopt;
  }

 private:
  SimulatedScheduler &scheduler_;
  TickingClock &clock_;
};

TEST(LoginRules, ATokenAndItsTimeAreStoredBeforeAnotherLoginIsAllowed) {
  std::uint64_t staleRequests = 0;
  for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
    LoginRules rules(seed);
    const auto clock = std::make_shared<TickingClock>(rules.device.scheduler);
    rules.device.replaced.clock = clock;
    rules.sendRefusedAfter(0.25);
    rules.device.advance(0.375);  // the login is under way, and answered at 0.5
    rules.device.replaced.console = std::make_shared<ListeningConsole>(rules.device.scheduler, *clock);
    rules.sendRefusedAfter(0.125);
    rules.device.advance(0.2);
    ASSERT_TRUE(clock->requestTime.has_value());
    const double tokenTime = rules.networking().accessTokenLastUpdated();
    const bool askedAgain = rules.device.service.logins().size() == 3;
    if (*clock->requestTime < tokenTime) ++staleRequests;
    if (askedAgain) {
      ASSERT_GE(*clock->requestTime, tokenTime) << "seed " << seed;
    }
  }
  EXPECT_GT(staleRequests, 100u);
}

TEST(LoginRules, WaitingIsSetBeforeTheLoginStarts) {
  for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
    SimulatedScope scope(seed);
    scope.device.service.latency = 0;  // the answer is there before the call that sends has returned
    scope.device.scheduler.setBackgroundTasksRunAtOnce(0);
    KXPublisher::sharedInstanceWithApiToken("token", "collect.example.com");
    scope.device.advance(10);
    scope.device.service.revokeTokens();
    scope.device.advance(1200);
    ASSERT_EQ(scope.device.service.logins().size(), 2u) << "seed " << seed;
    ASSERT_EQ(scope.device.service.messages().size(), 3u) << "seed " << seed;
  }
}

}  // namespace
}  // namespace kx
