#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <set>
#include <stdexcept>

#include "tests/support/ChildProcess.h"
#include "tools/collector/PagePassword.h"

namespace kx::collector {
namespace {

using ::testing::MatchesRegex;

TEST(PagePasswordTest, ANewOneIsRandomAndCanBeTyped) {
  std::set<std::string> passwords;
  for (int count = 0; count < 100; ++count) {
    passwords.insert(newPassword());
    EXPECT_THAT(*passwords.begin(), MatchesRegex("[a-km-np-z2-9]{20}"));
  }
  EXPECT_EQ(passwords.size(), 100u);
}

TEST(PagePasswordTest, ThePasswordIsWhatCountsOfTheCredentials) {
  EXPECT_TRUE(isAuthorized("Basic dXNlcjpzZWNyZXQ=", "secret"));    // user:secret
  EXPECT_TRUE(isAuthorized("basic OnNlY3JldA==", "secret"));        // :secret
  EXPECT_TRUE(isAuthorized("Basic dXNlcjpzZTpjcmV0", "se:cret"));   // user:se:cret
  EXPECT_FALSE(isAuthorized("Basic dXNlcjpzZWNyZXQ=", "secret2"));  // user:secret
  EXPECT_FALSE(isAuthorized("Basic dXNlcjpzZWNyZXQ=", "user"));     // user:secret
  EXPECT_FALSE(isAuthorized("Basic c2VjcmV0", "secret"));           // secret
  EXPECT_FALSE(isAuthorized("Basic dXNlcjo=", "secret"));           // user:
  EXPECT_FALSE(isAuthorized("Basic dXNlcjpzZWNyZXQA", "secret"));   // user:secret, and a zero byte
  EXPECT_FALSE(isAuthorized("Basic dXNlcjpTZWNyZXQ=", "secret"));   // user:Secret
}

TEST(PagePasswordTest, WhatAreNoCredentialsIsNotAuthorized) {
  for (const char *value :
       {"", "Basic", "Basic ", "Basic =", "Basic ====", "Basic ==========", "Basic dXNl",
        "Basic dXNlcjpzZWNyZXQ", "Basic *Xhl", "Bearer dXNlcjpzZWNyZXQ=", "B", "dXNlcjpzZWNyZXQ="}) {
    EXPECT_FALSE(isAuthorized(value, "secret")) << value;
    EXPECT_FALSE(isAuthorized(value, "x")) << value;
  }
}

class PagePasswordFileTest : public ::testing::Test {
 protected:
  const TemporaryDirectory temporary;
  const std::string file = temporary.path() + "/password";

  void write(const std::string &text) const {
    std::ofstream(file) << text;
    chmod(file.c_str(), 0600);
  }
};

TEST_F(PagePasswordFileTest, TheFirstLineIsThePassword) {
  write("secret");
  EXPECT_EQ(passwordIn(file), "secret");
  write("a secret\r\nand more\n");
  EXPECT_EQ(passwordIn(file), "a secret");
}

TEST_F(PagePasswordFileTest, AFileWithoutOneIsAnError) {
  EXPECT_THROW(passwordIn(file), std::runtime_error);
  write("\nsecret\n");
  EXPECT_THROW(passwordIn(file), std::runtime_error);
}

TEST_F(PagePasswordFileTest, AFileThatOthersMayReadIsAnError) {
  write("secret");
  chmod(file.c_str(), 0640);
  EXPECT_THROW(passwordIn(file), std::runtime_error);
}

}  // namespace
}  // namespace kx::collector
