#include <dlfcn.h>
#include <zlib.h>

#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "KXPublisher/transport/KXGzipUtility.h"
#include "tests/support/SimulatedTest.h"

// zlib as the library finds it here: itself, unless a test has it fail, and counted.
namespace {

std::optional<int> deflateInitResult;
std::optional<int> deflateResult;
int streamsEnded = 0;
struct {
  int level, method, windowBits, memLevel, strategy;
} initParameters;
std::vector<int> flushModes;
std::vector<unsigned> roomGiven;

template <class Function>
Function real(const char *name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define VISIBLE __attribute__((visibility("default")))

extern "C" {

VISIBLE int deflateInit2_(z_streamp stream, int level, int method, int windowBits, int memLevel, int strategy,
                          const char *version, int stream_size) {
  initParameters = {level, method, windowBits, memLevel, strategy};
  if (deflateInitResult) return *deflateInitResult;
  return real<decltype(&deflateInit2_)>("deflateInit2_")(stream, level, method, windowBits, memLevel,
                                                         strategy, version, stream_size);
}

VISIBLE int deflate(z_streamp stream, int flush) {
  flushModes.push_back(flush);
  roomGiven.push_back(stream->avail_out);
  if (deflateResult) return *deflateResult;
  return real<decltype(&deflate)>("deflate")(stream, flush);
}

VISIBLE int deflateEnd(z_streamp stream) {
  ++streamsEnded;
  return real<decltype(&deflateEnd)>("deflateEnd")(stream);
}

}  // extern "C"

namespace kx {
namespace {

class KXGzipUtilityTest : public SimulatedTest {
 protected:
  std::vector<std::string> &lines = device.consoleService.lines;

  static Data bytes(const std::string &text) { return Data(text.begin(), text.end()); }
  static std::string message(std::size_t size) {
    std::string text = "[{\"key\":\"value\",";
    while (text.size() < size) text += "\"languages\":[\"en-GB\",\"de-DE\"],";
    return text;
  }
};

TEST_F(KXGzipUtilityTest, MakesOneGzipMemberThatGivesTheInputBack) {
  const std::string text = message(600);
  const auto compressed = KXGzipUtility::gzipData(bytes(text));
  ASSERT_TRUE(compressed.has_value());
  EXPECT_EQ((*compressed)[0], 0x1f);
  EXPECT_EQ((*compressed)[1], 0x8b);
  EXPECT_EQ((*compressed)[2], 8);
  SimulatedRequest request;
  request.body = compressed;
  EXPECT_EQ(request.text(), text);
  EXPECT_TRUE(lines.empty());
}

TEST_F(KXGzipUtilityTest, ReturnsWhatWasProducedAndNotTheBound) {
  const auto compressed = KXGzipUtility::gzipData(bytes(message(10000)));
  ASSERT_TRUE(compressed.has_value());
  EXPECT_LT(compressed->size(), 1000u);
}

TEST_F(KXGzipUtilityTest, DrivesZlibWithItsFixedParameters) {
  KXGzipUtility::gzipData(bytes(message(600)));
  EXPECT_EQ(initParameters.level, -1);
  EXPECT_EQ(initParameters.method, 8);
  EXPECT_EQ(initParameters.windowBits, 31);
  EXPECT_EQ(initParameters.memLevel, 8);
  EXPECT_EQ(initParameters.strategy, 0);
  EXPECT_EQ(flushModes, (std::vector<int>{4}));
  EXPECT_EQ(streamsEnded, 1);
}

TEST_F(KXGzipUtilityTest, GivesZlibAHundredthMoreThanTheInputAndTwelveBytes) {
  for (const auto &[size, room] :
       {std::pair(1u, 13u), {99u, 111u}, {100u, 113u}, {199u, 212u}, {600u, 618u}, {100000u, 101012u}}) {
    roomGiven.clear();
    KXGzipUtility::gzipData(Data(size, 'a'));
    ASSERT_FALSE(roomGiven.empty());
    EXPECT_EQ(roomGiven.front(), room) << size;
  }
}

TEST_F(KXGzipUtilityTest, RefusesAbsentAndEmptyInput) {
  EXPECT_EQ(KXGzipUtility::gzipData(std::nullopt), std::nullopt);
  EXPECT_EQ(KXGzipUtility::gzipData(Data()), std::nullopt);
  const std::string line =
      "[KX Error] +[KXGzipUtility gzipData:]: Error: Can't compress an empty or null NSData object.";
  EXPECT_EQ(lines, (std::vector<std::string>{line, line}));
}

TEST_F(KXGzipUtilityTest, RunsOutOfBufferOnTheShortestInputs) {
  for (std::size_t size = 1; size <= 8; ++size) {
    lines.clear();
    EXPECT_EQ(KXGzipUtility::gzipData(Data(size, 'a')), std::nullopt) << size;
    EXPECT_EQ(
        lines,
        (std::vector<std::string>{
            "[KX Error] +[KXGzipUtility gzipData:]: zlib error while attempting compression: \"Ran out of "
            "output buffer for writing compressed bytes.\" Message: \"buffer error\""}))
        << size;
  }
  EXPECT_EQ(streamsEnded, 8);
}

TEST_F(KXGzipUtilityTest, AsksForMoreRoomOnceBeforeItGivesUp) {
  KXGzipUtility::gzipData(Data(1, 'a'));
  EXPECT_EQ(flushModes, (std::vector<int>{4, 4}));
}

TEST_F(KXGzipUtilityTest, RunsOutOfBufferOnShortInputThatDoesNotCompress) {
  std::mt19937 random(1);
  Data noise(100);
  for (auto &byte : noise) byte = static_cast<std::uint8_t>(random());
  EXPECT_EQ(KXGzipUtility::gzipData(noise), std::nullopt);
  EXPECT_EQ(lines.size(), 1u);
}

TEST_F(KXGzipUtilityTest, TakesLongInputThatDoesNotCompress) {
  std::mt19937 random(1);
  Data noise(100000);
  for (auto &byte : noise) byte = static_cast<std::uint8_t>(random());
  EXPECT_TRUE(KXGzipUtility::gzipData(noise).has_value());
}

struct ZlibFailure {
  const char *name;
  int result;
  const char *message;
};

std::string nameOf(const ::testing::TestParamInfo<ZlibFailure> &info) {
  return info.param.name;
}

class KXGzipUtilityInitFailureTest : public KXGzipUtilityTest,
                                     public ::testing::WithParamInterface<ZlibFailure> {};

TEST_P(KXGzipUtilityInitFailureTest, LogsWhyZlibDidNotStartAndEndsNoStream) {
  deflateInitResult = GetParam().result;
  EXPECT_EQ(KXGzipUtility::gzipData(bytes(message(600))), std::nullopt);
  EXPECT_EQ(lines, (std::vector<std::string>{
                       std::string("[KX Error] +[KXGzipUtility gzipData:]: deflateInit2() Error: \"") +
                       GetParam().message + "\" Message: \"(null)\""}));
  EXPECT_EQ(streamsEnded, 0);
}

INSTANTIATE_TEST_SUITE_P(EachResult, KXGzipUtilityInitFailureTest,
                         ::testing::Values(
                             ZlibFailure{
                                 "VersionError", -6,
                                 "The version of zlib.h and the version of the library linked do not match."},
                             ZlibFailure{"MemoryError", -4, "Insufficient memory."},
                             ZlibFailure{"StreamError", -2, "Invalid parameter passed in to function."},
                             ZlibFailure{"DataError", -3, "Unknown error code."},
                             ZlibFailure{"AboveAll", 2, "Unknown error code."}),
                         nameOf);

class KXGzipUtilityFailureTest : public KXGzipUtilityTest,
                                 public ::testing::WithParamInterface<ZlibFailure> {};

TEST_P(KXGzipUtilityFailureTest, LogsWhyZlibStoppedAndEndsItsStream) {
  deflateResult = GetParam().result;
  EXPECT_EQ(KXGzipUtility::gzipData(bytes(message(600))), std::nullopt);
  EXPECT_EQ(
      lines,
      (std::vector<std::string>{
          std::string("[KX Error] +[KXGzipUtility gzipData:]: zlib error while attempting compression: \"") +
          GetParam().message + "\" Message: \"(null)\""}));
  EXPECT_EQ(streamsEnded, 1);
}

INSTANTIATE_TEST_SUITE_P(
    EachResult, KXGzipUtilityFailureTest,
    ::testing::Values(
        ZlibFailure{"VersionError", -6,
                    "The version of zlib.h and the version of the library linked do not match."},
        ZlibFailure{"BufferError", -5, "Ran out of output buffer for writing compressed bytes."},
        ZlibFailure{"MemoryError", -4, "Memory could not be allocated for processing."},
        ZlibFailure{"DataError", -3, "The deflate data was invalid or incomplete."},
        ZlibFailure{"StreamError", -2,
                    "The stream state was inconsistent (e.g., next_in or next_out was NULL)."},
        ZlibFailure{"FileError", -1, "Error occured while reading file."},
        ZlibFailure{"BelowAll", -7, "Unknown error code."},
        ZlibFailure{"AboveAll", 2, "Unknown error code."}),
    nameOf);

}  // namespace
}  // namespace kx
