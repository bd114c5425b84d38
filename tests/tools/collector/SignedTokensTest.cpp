#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "tools/collector/SignedTokens.h"

namespace kx::collector {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;

const TokenKeys theKeys{std::string(32, 'a'), std::nullopt};

class SignedTokensTest : public ::testing::Test {
 protected:
  system_clock::time_point now{seconds(1'700'000'000)};

  SignedTokens tokens(TokenKeys keys = theKeys, milliseconds lifetime = seconds(60)) {
    return SignedTokens(std::move(keys), lifetime, [this] { return now; });
  }
  static std::string issue(SignedTokens &of) { return of.issue({}); }
  static bool accepts(const SignedTokens &of, std::string_view token) { return of.accept(token, {}); }
};

TEST_F(SignedTokensTest, AreGoodForWhoeverHasTheKey) {
  SignedTokens here = tokens();
  const SignedTokens there = tokens();
  const std::string token = issue(here);
  EXPECT_TRUE(accepts(here, token));
  EXPECT_TRUE(accepts(there, token));
  EXPECT_FALSE(accepts(tokens({std::string(32, 'b'), std::nullopt}), token));
}

TEST_F(SignedTokensTest, SayUntilWhenTheyAreGood) {
  SignedTokens some = tokens();
  EXPECT_THAT(issue(some), ::testing::MatchesRegex("1\\.1700000060\\.[0-9a-f]{16}\\.[0-9a-f]{64}"));
}

TEST_F(SignedTokensTest, AreSignedByHMACSHA256) {
  const SignedTokens some = tokens();
  // printf 1.1700000060.0123456789abcdef | openssl dgst -sha256 -hmac aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa
  EXPECT_TRUE(accepts(some,
                      "1.1700000060.0123456789abcdef."
                      "0609a1f20817364494b03b38f6086e3ecf0cfce7ed16f4fea11d9b447f036e5e"));
}

TEST_F(SignedTokensTest, AreEachAnother) {
  SignedTokens some = tokens();
  std::set<std::string> seen;
  for (int count = 0; count < 1000; ++count) seen.insert(issue(some));
  EXPECT_EQ(seen.size(), 1000u);
}

TEST_F(SignedTokensTest, ExpireAtTheEndOfTheirLifetime) {
  SignedTokens some = tokens();
  const std::string token = issue(some);
  now += seconds(60) - milliseconds(1);
  EXPECT_TRUE(accepts(some, token));
  now += milliseconds(1);
  EXPECT_FALSE(accepts(some, token));
}

TEST_F(SignedTokensTest, NeverExpireBeforeTheEndOfTheirLifetime) {
  SignedTokens some = tokens(theKeys, milliseconds(1500));
  now += milliseconds(700);
  const std::string token = issue(some);
  now += milliseconds(1499);
  EXPECT_TRUE(accepts(some, token));
  now += milliseconds(801);
  EXPECT_FALSE(accepts(some, token));
}

TEST_F(SignedTokensTest, AreNotGoodWithAnyByteChanged) {
  SignedTokens some = tokens();
  const std::string token = issue(some);
  for (std::size_t place = 0; place < token.size(); ++place) {
    for (const char other : {'0', '1', 'f', 'A', '.', ' ', '\0', '\xFF'}) {
      std::string changed = token;
      if (changed[place] == other) continue;
      changed[place] = other;
      EXPECT_FALSE(accepts(some, changed)) << place << " " << changed;
    }
  }
}

TEST_F(SignedTokensTest, AreNotGoodWithMoreOrLess) {
  SignedTokens some = tokens();
  const std::string token = issue(some);
  for (std::size_t size = 0; size < token.size(); ++size) {
    EXPECT_FALSE(accepts(some, token.substr(0, size))) << size;
    EXPECT_FALSE(accepts(some, token.substr(token.size() - size))) << size;
  }
  for (const std::string &other :
       {token + " ", token + ".", " " + token, token + token, token + std::string(1, '\0'),
        std::string(100000, '.'), std::string("."), std::string("...")}) {
    EXPECT_FALSE(accepts(some, other)) << other.substr(0, 200);
  }
}

TEST_F(SignedTokensTest, ChangeTheirKeyWithoutOneBeingRefused) {
  const std::string before(32, 'a');
  const std::string after(32, 'b');
  SignedTokens first = tokens({before, std::nullopt});
  SignedTokens second = tokens({before, std::nullopt});
  const std::string old = issue(first);
  // The new one is made known everywhere, then it signs, then the old one goes.
  first.useKeys({before, after});
  second.useKeys({before, after});
  first.useKeys({after, before});
  const std::string young = issue(first);
  EXPECT_TRUE(accepts(second, young));
  EXPECT_TRUE(accepts(second, issue(second)));
  EXPECT_TRUE(accepts(first, issue(second)));
  second.useKeys({after, before});
  EXPECT_TRUE(accepts(first, old));
  EXPECT_TRUE(accepts(second, old));
  first.useKeys({after, std::nullopt});
  EXPECT_FALSE(accepts(first, old));
  EXPECT_TRUE(accepts(first, young));
}

TEST_F(SignedTokensTest, CanBeForgottenHere) {
  SignedTokens here = tokens();
  const std::string token = issue(here);
  const std::string other = issue(here);
  here.forget(token);
  EXPECT_FALSE(accepts(here, token));
  EXPECT_TRUE(accepts(here, other));
  EXPECT_TRUE(accepts(tokens(), token));
}

TEST_F(SignedTokensTest, RememberOnlyTheLatestThatWereForgotten) {
  SignedTokens here = tokens();
  const std::string first = issue(here);
  here.forget(first);
  for (int count = 0; count < 1023; ++count) here.forget("another");
  EXPECT_FALSE(accepts(here, first));
  here.forget("one more");
  EXPECT_TRUE(accepts(here, first));
}

}  // namespace
}  // namespace kx::collector
