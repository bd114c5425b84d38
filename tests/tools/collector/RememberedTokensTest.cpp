#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "tools/collector/RememberedTokens.h"

namespace kx::collector {
namespace {

using std::chrono::seconds;

const AccessTokens::Time timeOfStart{};

TEST(RememberedTokensTest, KnowATokenThatTheyGaveOut) {
  RememberedTokens tokens(10, std::nullopt);
  const std::string token = tokens.issue(timeOfStart);
  EXPECT_TRUE(tokens.accept(token, timeOfStart));
  EXPECT_TRUE(tokens.accept(token, timeOfStart + std::chrono::hours(100000)));
}

TEST(RememberedTokensTest, KnowNoOther) {
  RememberedTokens tokens(10, std::nullopt);
  EXPECT_FALSE(tokens.accept("", timeOfStart));
  const std::string token = tokens.issue(timeOfStart);
  for (const std::string &other : {std::string(), token + " ", " " + token, token.substr(1), token + token}) {
    EXPECT_FALSE(tokens.accept(other, timeOfStart)) << other;
  }
}

TEST(RememberedTokensTest, AreRandomAndEachAnother) {
  RememberedTokens tokens(1000, std::nullopt);
  std::set<std::string> seen;
  for (int count = 0; count < 1000; ++count) {
    const std::string token = tokens.issue(timeOfStart);
    EXPECT_THAT(token, ::testing::MatchesRegex("[0-9a-f]{32}"));
    seen.insert(token);
  }
  EXPECT_EQ(seen.size(), 1000u);
}

TEST(RememberedTokensTest, ExpireAtTheEndOfTheirLifetime) {
  RememberedTokens tokens(10, seconds(5));
  const std::string first = tokens.issue(timeOfStart);
  const std::string second = tokens.issue(timeOfStart + seconds(3));
  EXPECT_TRUE(tokens.accept(first, timeOfStart + seconds(5) - std::chrono::nanoseconds(1)));
  EXPECT_FALSE(tokens.accept(first, timeOfStart + seconds(5)));
  EXPECT_TRUE(tokens.accept(second, timeOfStart + seconds(7)));
  EXPECT_FALSE(tokens.accept(second, timeOfStart + seconds(8)));
}

TEST(RememberedTokensTest, ForgetTheOldestWhenThereAreTooMany) {
  RememberedTokens tokens(2, std::nullopt);
  const std::string first = tokens.issue(timeOfStart);
  const std::string second = tokens.issue(timeOfStart);
  EXPECT_TRUE(tokens.accept(first, timeOfStart));
  const std::string third = tokens.issue(timeOfStart);
  EXPECT_FALSE(tokens.accept(first, timeOfStart));
  EXPECT_TRUE(tokens.accept(second, timeOfStart));
  EXPECT_TRUE(tokens.accept(third, timeOfStart));
}

}  // namespace
}  // namespace kx::collector
