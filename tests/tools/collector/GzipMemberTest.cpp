#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/collector/Requests.h"
#include "tools/collector/GzipMember.h"
#include "tools/collector/Refusal.h"

namespace kx::collector {
namespace {

using ::testing::HasSubstr;

/// The refusal's status and reason, "400 the body is empty"; empty when the body is accepted.
std::string refusalOfBody(const std::string &body, std::size_t maximumSize = 1000000) {
  try {
    unpackGzipMember(body, maximumSize);
    return "";
  } catch (const Refusal &refusal) {
    return std::to_string(refusal.status()) + " " + refusal.what();
  }
}

TEST(GzipMemberTest, UnpacksOneMember) {
  EXPECT_EQ(unpackGzipMember(gzip("some text"), 100), "some text");
}

TEST(GzipMemberTest, UnpacksMoreThanFitsIntoOneChunk) {
  std::string text;
  for (int number = 0; number < 50000; ++number) text += std::to_string(number);
  EXPECT_EQ(unpackGzipMember(gzip(text), text.size()), text);
}

TEST(GzipMemberTest, UnpacksAMemberOfNothing) {
  EXPECT_EQ(unpackGzipMember(gzip(""), 100), "");
}

TEST(GzipMemberTest, RefusesAnEmptyBody) {
  EXPECT_EQ(refusalOfBody(""), "400 the body is empty");
}

TEST(GzipMemberTest, RefusesWhatIsNotPacked) {
  EXPECT_THAT(refusalOfBody("{\"header\":{}}"), HasSubstr("400 the body is not a gzip member"));
}

TEST(GzipMemberTest, RefusesAZlibStreamWithoutTheGzipWrapper) {
  const std::string zlibStream("\x78\x9C\x4B\x4C\x4A\x06\x00\x02\x4D\x01\x27", 11);  // "abc"
  EXPECT_THAT(refusalOfBody(zlibStream), HasSubstr("400 the body is not a gzip member"));
}

TEST(GzipMemberTest, RefusesEveryMemberThatIsCutOff) {
  const std::string whole = gzip("some text that is long enough");
  for (std::size_t size = 1; size < whole.size(); ++size) {
    EXPECT_EQ(refusalOfBody(whole.substr(0, size)), "400 the gzip member in the body is cut off") << size;
  }
}

TEST(GzipMemberTest, RefusesADamagedMember) {
  std::string damaged = gzip("some text that is long enough");
  damaged[damaged.size() - 8] ^= 1;  // in the checksum
  EXPECT_THAT(refusalOfBody(damaged), HasSubstr("400 the body is not a gzip member (incorrect data check)"));
}

TEST(GzipMemberTest, MayHaveMoreThanAUsualHeader) {
  const std::string plain = gzip("text");
  const auto with = [&plain](char flags, const std::string &more) {
    std::string body = plain;
    body[3] = flags;
    return body.insert(10, more);
  };
  EXPECT_EQ(unpackGzipMember(with(8, std::string("name\0", 5)), 100), "text");
  EXPECT_THAT(refusalOfBody(with(2, "xx")), HasSubstr("(header crc mismatch)"));
  EXPECT_THAT(refusalOfBody(with(32, "")), HasSubstr("(unknown header flags set)"));
}

TEST(GzipMemberTest, RefusesWhatFollowsTheMember) {
  EXPECT_EQ(refusalOfBody(gzip("text") + "x"), "400 the gzip member in the body is followed by 1 more bytes");
  EXPECT_EQ(refusalOfBody(gzip("text") + std::string(3, '\0')),
            "400 the gzip member in the body is followed by 3 more bytes");
  const std::string second = gzip("more");
  EXPECT_EQ(refusalOfBody(gzip("text") + second), "400 the gzip member in the body is followed by " +
                                                      std::to_string(second.size()) + " more bytes");
}

TEST(GzipMemberTest, RefusesWhatUnpacksToMoreThanTheBound) {
  const std::string text(100000, 'x');
  EXPECT_EQ(refusalOfBody(gzip(text), 100000), "");
  EXPECT_EQ(refusalOfBody(gzip(text), 99999), "413 the body unpacks to more than 99999 bytes");
  EXPECT_EQ(refusalOfBody(gzip(std::string(100000000, '\0')), 1000),
            "413 the body unpacks to more than 1000 bytes");
}

}  // namespace
}  // namespace kx::collector
