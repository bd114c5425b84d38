#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/collector/QRCode.h"

namespace kx::collector {
namespace {

using ::testing::Each;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr std::size_t quietZone = 4;

std::vector<std::string> linesOf(const std::string &text) {
  std::istringstream input(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(input, line);) lines.push_back(line);
  return lines;
}

/// The modules as they were drawn, quiet zone included, a row a text: '#' is dark.
std::vector<std::string> modulesOf(const std::string &drawn) {
  std::vector<std::string> rows;
  for (const std::string &line : linesOf(drawn)) {
    std::string upper;
    std::string lower;
    for (std::size_t at = 0; at < line.size(); at += line[at] == ' ' ? 1U : 3U) {
      const std::string character = line[at] == ' ' ? " " : line.substr(at, 3);
      upper += character == "\u2588" || character == "\u2580" ? '.' : '#';
      lower += character == "\u2588" || character == "\u2584" ? '.' : '#';
    }
    rows.push_back(upper);
    rows.push_back(lower);
  }
  return rows;
}

TEST(QRCodeTest, HasTheMarksByWhichAReaderFindsIt) {
  const auto rows = modulesOf(qrCode("https://192.0.2.7:8443/ca", /*colours=*/false));
  const std::size_t width = rows.front().size();
  ASSERT_GE(rows.size(), width);
  EXPECT_EQ((width - 2 * quietZone - 17) % 4, 0u);  // as every version of a QR code
  const std::vector<std::string> mark = {"#######.", "#.....#.", "#.###.#.", "#.###.#.",
                                         "#.###.#.", "#.....#.", "#######."};
  for (std::size_t row = 0; row < mark.size(); ++row) {
    const std::string mirrored(mark[row].rbegin(), mark[row].rend());
    EXPECT_EQ(rows[quietZone + row].substr(quietZone, 8), mark[row]);
    EXPECT_EQ(rows[quietZone + row].substr(width - quietZone - 8, 8), mirrored);
    EXPECT_EQ(rows[width - quietZone - 7 + row].substr(quietZone, 8), mark[row]);
  }
  // The line of alternating modules between them.
  for (std::size_t column = quietZone + 8; column < width - quietZone - 8; ++column) {
    EXPECT_EQ(rows[quietZone + 6][column], (column - quietZone) % 2 == 0 ? '#' : '.');
  }
}

TEST(QRCodeTest, HasAQuietZone) {
  const auto rows = modulesOf(qrCode("text", /*colours=*/false));
  const std::size_t width = rows.front().size();
  const std::string light(width, '.');
  for (std::size_t row = 0; row < quietZone; ++row) {
    EXPECT_EQ(rows[row], light);
    EXPECT_EQ(rows[width - 1 - row], light);
  }
  for (const std::string &row : rows) {
    EXPECT_THAT(row, StartsWith(std::string(quietZone, '.')));
    EXPECT_THAT(row, EndsWith(std::string(quietZone, '.')));
  }
}

TEST(QRCodeTest, IsAnotherForAnotherText) {
  EXPECT_NE(qrCode("https://192.0.2.7:8443/ca", false), qrCode("https://192.0.2.7:8444/ca", false));
}

TEST(QRCodeTest, IsBlackOnWhiteWhereThereAreColours) {
  const auto lines = linesOf(qrCode("text", /*colours=*/true));
  EXPECT_THAT(lines, Each(StartsWith("\x1B[40;97m")));
  EXPECT_THAT(lines, Each(EndsWith("\x1B[0m")));
  EXPECT_THAT(qrCode("text", /*colours=*/false), Not(HasSubstr("\x1B")));
}

TEST(QRCodeTest, ATextThatIsTooLongIsAnError) {
  EXPECT_THROW(qrCode(std::string(5000, 'x'), false), std::runtime_error);
}

}  // namespace
}  // namespace kx::collector
