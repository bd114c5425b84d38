#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/ChildProcess.h"
#include "tools/collector/TokenKeys.h"

namespace kx::collector {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string keyOfAs(64, 'a');
const std::string keyOfBs(64, 'B');

class TokenKeysTest : public ::testing::Test {
 protected:
  const TemporaryDirectory temporary;
  const fs::path file = temporary.path() + "/keys";

  void write(const std::string &content,
             fs::perms permissions = fs::perms::owner_read | fs::perms::owner_write) {
    fs::remove(file);
    std::ofstream(file) << content;
    fs::permissions(file, permissions);
  }

  std::string problemWith(const std::string &content) {
    write(content);
    try {
      tokenKeysIn(file);
    } catch (const std::runtime_error &error) {
      return error.what();
    }
    return "none";
  }
};

TEST_F(TokenKeysTest, AreTheLinesOfAFile) {
  write(keyOfAs + "\n");
  EXPECT_EQ(tokenKeysIn(file).current, std::string(32, '\xAA'));
  EXPECT_EQ(tokenKeysIn(file).other, std::nullopt);
  write("# the new one\n" + keyOfBs + "\r\n\n# the old one\n" + keyOfAs);
  EXPECT_EQ(tokenKeysIn(file).current, std::string(32, '\xBB'));
  EXPECT_EQ(tokenKeysIn(file).other, std::string(32, '\xAA'));
}

TEST_F(TokenKeysTest, AreForTheOwnerOfTheFileAlone) {
  for (const fs::perms others : {fs::perms::group_read, fs::perms::others_read, fs::perms::group_write}) {
    write(keyOfAs, fs::perms::owner_read | others);
    EXPECT_THROW(tokenKeysIn(file), std::runtime_error);
  }
  write(keyOfAs, fs::perms::owner_read);
  EXPECT_NO_THROW(tokenKeysIn(file));
}

TEST_F(TokenKeysTest, AreRefusedWithTheReason) {
  const std::string space(1, ' ');
  EXPECT_THAT(problemWith(""), HasSubstr("has no key"));
  EXPECT_THAT(problemWith("#" + keyOfAs), HasSubstr("has no key"));
  EXPECT_THAT(problemWith(keyOfAs.substr(2)), HasSubstr("has a key of less than 32 bytes in line 1"));
  EXPECT_THAT(problemWith(std::string(2050, 'a')), HasSubstr("has a key of more than 1024 bytes in line 1"));
  EXPECT_THAT(problemWith(keyOfAs + "\n" + keyOfBs + "\n" + std::string(64, 'c')),
              HasSubstr("more than two keys"));
  EXPECT_THAT(problemWith(keyOfAs + "\n\n" + keyOfAs), HasSubstr("has the same key again in line 3"));
  for (const std::string &line :
       {keyOfAs + "a", keyOfAs + " ", space + keyOfAs, keyOfAs + "0x", keyOfAs + "+1", keyOfAs + "-1",
        keyOfAs + "g0", keyOfAs + keyOfAs + "\xC3\xA4"}) {
    EXPECT_THAT(problemWith(keyOfBs + "\n" + line), HasSubstr("something else than hexadecimal digits"));
    EXPECT_THAT(problemWith(keyOfBs + "\n" + line), HasSubstr("in line 2"));
  }
}

TEST_F(TokenKeysTest, AreNotTold) {
  for (const std::string &content : {keyOfAs.substr(2), keyOfAs + "x", keyOfAs + "\n" + keyOfAs}) {
    EXPECT_THAT(problemWith(content), Not(HasSubstr("aaaa")));
  }
}

TEST_F(TokenKeysTest, HaveToBeThere) {
  EXPECT_THROW(tokenKeysIn(temporary.path() + "/none"), std::runtime_error);
}

}  // namespace
}  // namespace kx::collector
