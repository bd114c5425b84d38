#include "tools/collector/QRCode.h"

#include <qrencode.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kx::collector {

namespace {

constexpr int quietZone = 4;  // modules
constexpr int anyVersion = 0;

constexpr const char *upperHalf = "\u2580";
constexpr const char *lowerHalf = "\u2584";
constexpr const char *full = "\u2588";

constexpr const char *whiteOnBlack = "\x1B[40;97m";
constexpr const char *plainAgain = "\x1B[0m";

}  // namespace

std::vector<std::string> qrModules(const std::string &text) {
  const std::unique_ptr<::QRcode, decltype(&QRcode_free)> code(
      QRcode_encodeString(text.c_str(), anyVersion, QR_ECLEVEL_M, QR_MODE_8, /*casesensitive=*/1),
      QRcode_free);
  if (code == nullptr) throw std::runtime_error("there is no QR code for so long a text");
  std::vector<std::string> rows;
  for (int row = 0; row < code->width; ++row) {
    std::string &modules = rows.emplace_back();
    for (int column = 0; column < code->width; ++column) {
      modules += (code->data[row * code->width + column] & 1) != 0 ? '1' : '0';
    }
  }
  return rows;
}

std::string qrCode(const std::string &text, bool colours) {
  const std::vector<std::string> modules = qrModules(text);
  const int width = static_cast<int>(modules.size());
  const auto isLight = [&modules, width](int row, int column) {
    const bool inside = row >= 0 && row < width && column >= 0 && column < width;
    return !inside || modules[static_cast<std::size_t>(row)][static_cast<std::size_t>(column)] == '0';
  };
  std::string drawn;
  for (int row = -quietZone; row < width + quietZone; row += 2) {
    if (colours) drawn += whiteOnBlack;
    for (int column = -quietZone; column < width + quietZone; ++column) {
      const bool upper = isLight(row, column);
      const bool lower = isLight(row + 1, column);
      drawn += upper && lower ? full : upper ? upperHalf : lower ? lowerHalf : " ";
    }
    drawn += colours ? std::string(plainAgain) + "\n" : "\n";
  }
  return drawn;
}

}  // namespace kx::collector
