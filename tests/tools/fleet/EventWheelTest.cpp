#include <gtest/gtest.h>

#include "tools/fleet/EventWheel.h"

namespace kx::fleet {
namespace {

struct Seen {
  std::uint32_t device;
  Time at;

  bool operator==(const Seen &other) const { return device == other.device && at == other.at; }
};

class EventWheelTest : public testing::Test {
 protected:
  void schedule(Time at, std::uint32_t device, Phase phase = Phase::reports) {
    wheel.schedule(at, phase, device, Happening::earlyReport, 0);
  }
  std::vector<Seen> run() {
    std::vector<Seen> seen;
    wheel.run([](std::uint32_t) {},
              [&](const EventWheel::Event &event, Time now) {
                seen.push_back({event.device, now});
                if (whenHappens != nullptr) whenHappens(event.device, now);
              });
    return seen;
  }

  EventWheel wheel{100'000};
  std::function<void(std::uint32_t device, Time now)> whenHappens;
};

TEST_F(EventWheelTest, HasThingsHappenInTheOrderOfTime) {
  schedule(70'000, 1);
  schedule(3, 2);
  schedule(1023, 3);
  schedule(1024, 4);
  schedule(2, 5);
  EXPECT_EQ(run(), (std::vector<Seen>{{5, 2}, {2, 3}, {3, 1023}, {4, 1024}, {1, 70'000}}));
}

TEST_F(EventWheelTest, HasThingsOfOneMillisecondHappenByTheirPhasesAndThenAsScheduled) {
  schedule(5000, 1, Phase::life);
  schedule(5000, 2, Phase::reports);
  schedule(5000, 3, Phase::answers);
  schedule(5000, 4, Phase::decisions);
  schedule(5000, 5, Phase::answers);
  EXPECT_EQ(run(), (std::vector<Seen>{{3, 5000}, {5, 5000}, {4, 5000}, {2, 5000}, {1, 5000}}));
}

TEST_F(EventWheelTest, TakesMoreWhileThingsHappen) {
  schedule(10, 1, Phase::answers);
  whenHappens = [this](std::uint32_t device, Time now) {
    if (device > 3) return;
    schedule(now, device + 10, Phase::life);  // the same millisecond
    schedule(now + 700, device + 1, Phase::answers);
  };
  EXPECT_EQ(run(),
            (std::vector<Seen>{{1, 10}, {11, 10}, {2, 710}, {12, 710}, {3, 1410}, {13, 1410}, {4, 2110}}));
}

TEST_F(EventWheelTest, GoesOnWhereItWas) {
  for (const Time at : {0, 5, 1023, 1024, 1030, 5000, 70'000}) schedule(at, static_cast<std::uint32_t>(at));
  std::vector<Seen> seen;
  const auto runUntil = [&](Time until) {
    wheel.runUntil(
        until, [](std::uint32_t) {},
        [&](const EventWheel::Event &event, Time now) {
          seen.push_back({event.device, now});
        });
  };
  runUntil(5);
  EXPECT_EQ(seen, (std::vector<Seen>{{0, 0}}));
  schedule(5, 6);
  schedule(900, 900);
  runUntil(5);
  EXPECT_EQ(seen.size(), 1U);
  runUntil(1024);
  EXPECT_EQ(seen, (std::vector<Seen>{{0, 0}, {5, 5}, {6, 5}, {900, 900}, {1023, 1023}}));
  runUntil(3000);  // and begins to wait in a window that has nothing
  schedule(3000, 3000);
  seen.clear();
  runUntil(200'000);
  EXPECT_EQ(seen, (std::vector<Seen>{{3000, 3000}, {5000, 5000}, {70'000, 70'000}}));
}

TEST_F(EventWheelTest, ForgetsWhatIsDueAtTheEndOrLater) {
  schedule(99'999, 1);
  schedule(100'000, 2);
  schedule(2'000'000'000, 3);
  EXPECT_EQ(run(), (std::vector<Seen>{{1, 99'999}}));
}

}  // namespace
}  // namespace kx::fleet
