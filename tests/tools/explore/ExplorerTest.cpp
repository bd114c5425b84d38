#include <gtest/gtest.h>

#include "KXPublisher/platform/simulated/SimulatedPlatform.h"
#include "tools/explore/Explorer.h"

namespace kx {
namespace {

/// The first of a few hundred stories that breaks a promise.
std::optional<Story> firstBroken(const Explorer &explorer) {
  for (std::uint64_t seed = 1; seed <= 300; ++seed) {
    const Story story = Story::ofSeed(seed);
    if (explorer.play(story)) return story;
  }
  return std::nullopt;
}

/// A promise that is broken as soon as the second SIM is in.
std::optional<std::string> secondCarrier(SimulatedPlatform &device) {
  const auto &carrier = device.telephonyService.carrier;
  if (carrier && carrier->mobileNetworkCode == "2") return "the second SIM is in";
  return std::nullopt;
}

TEST(Explorer, FindsShrinksAndReplaysWhatBreaksAPromise) {
  const Explorer explorer(&secondCarrier);
  const auto found = firstBroken(explorer);
  ASSERT_TRUE(found.has_value());
  const Story shrunk = explorer.shrink(*found);
  ASSERT_EQ(shrunk.events.size(), 1u) << shrunk.text();
  EXPECT_EQ(shrunk.events[0].happening, Happening::carrierChanges);
  EXPECT_EQ(explorer.play(shrunk), "the second SIM is in");
  EXPECT_NE(shrunk.text().find("the carrier changes to 2\n"), std::string::npos);
}

TEST(Explorer, TellsWhatTheThreadsDid) {
  const Explorer explorer;
  std::string trace;
  std::string picture;
  std::string again;
  explorer.play(Story::ofSeed(7), &trace, &picture);
  explorer.play(Story::ofSeed(7), &again);
  EXPECT_NE(trace.find("timer fires: logData:"), std::string::npos);
  EXPECT_EQ(trace, again);
  EXPECT_EQ(picture.rfind("<svg ", 0), 0u);
}

TEST(Explorer, TakesWhatIsThrownForABrokenPromise) {
  const Explorer explorer(
      [](SimulatedPlatform &) -> std::optional<std::string> { throw std::runtime_error("thrown"); });
  EXPECT_EQ(explorer.play(Story::ofSeed(1)), "something was thrown: thrown");
}

// Two answers that refuse wait for a suspended process. When it is resumed, the login that the first leads to
// may have ended as the second arrives, which then leads to another: it was refused after the token came, for
// all anyone can tell.
TEST(Explorer, CountsARefusalFromWhenTheProcessLearnsOfIt) {
  const Explorer explorer;
  Story story;
  story.events = {{Happening::timePasses, 10},  {Happening::tokensAreRevoked, 0}, {Happening::hostReports, 3},
                  {Happening::isSuspended, 0},  {Happening::loginIsAnswered, 10},  // at once
                  {Happening::timePasses, 300}, {Happening::isResumed, 0}};
  for (story.seed = 1; story.seed <= 200; ++story.seed)
    ASSERT_EQ(explorer.play(story), std::nullopt) << story.text();
}

TEST(Story, IsAlwaysTheSameForItsSeed) {
  EXPECT_EQ(Story::ofSeed(5).text(), Story::ofSeed(5).text());
  EXPECT_NE(Story::ofSeed(5).text(), Story::ofSeed(6).text());
}

}  // namespace
}  // namespace kx
