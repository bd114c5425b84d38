#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "tools/collector/AccessTokens.h"

namespace kx::collector {
namespace {

using std::chrono::seconds;

const AccessTokens::Time start{};

TEST(AccessTokensTest, KnowATokenThatTheyGaveOut) {
  AccessTokens tokens(10, std::nullopt);
  const std::string token = tokens.issue(start);
  EXPECT_TRUE(tokens.accept(token, start));
  EXPECT_TRUE(tokens.accept(token, start + std::chrono::hours(100000)));
}

TEST(AccessTokensTest, KnowNoOther) {
  AccessTokens tokens(10, std::nullopt);
  EXPECT_FALSE(tokens.accept("", start));
  const std::string token = tokens.issue(start);
  for (const std::string &other : {std::string(), token + " ", " " + token, token.substr(1), token + token}) {
    EXPECT_FALSE(tokens.accept(other, start)) << other;
  }
}

TEST(AccessTokensTest, AreRandomAndEachAnother) {
  AccessTokens tokens(1000, std::nullopt);
  std::set<std::string> seen;
  for (int count = 0; count < 1000; ++count) {
    const std::string token = tokens.issue(start);
    EXPECT_THAT(token, ::testing::MatchesRegex("[0-9a-f]{32}"));
    seen.insert(token);
  }
  EXPECT_EQ(seen.size(), 1000u);
}

TEST(AccessTokensTest, ExpireAtTheEndOfTheirLifetime) {
  AccessTokens tokens(10, seconds(5));
  const std::string first = tokens.issue(start);
  const std::string second = tokens.issue(start + seconds(3));
  EXPECT_TRUE(tokens.accept(first, start + seconds(5) - std::chrono::nanoseconds(1)));
  EXPECT_FALSE(tokens.accept(first, start + seconds(5)));
  EXPECT_TRUE(tokens.accept(second, start + seconds(7)));
  EXPECT_FALSE(tokens.accept(second, start + seconds(8)));
}

TEST(AccessTokensTest, ForgetTheOldestWhenThereAreTooMany) {
  AccessTokens tokens(2, std::nullopt);
  const std::string first = tokens.issue(start);
  const std::string second = tokens.issue(start);
  EXPECT_TRUE(tokens.accept(first, start));
  const std::string third = tokens.issue(start);
  EXPECT_FALSE(tokens.accept(first, start));
  EXPECT_TRUE(tokens.accept(second, start));
  EXPECT_TRUE(tokens.accept(third, start));
}

}  // namespace
}  // namespace kx::collector
