#include "tools/collector/QRCode.h"

#include <qrencode.h>

#include <memory>
#include <stdexcept>

namespace kx::collector {

namespace {

constexpr int quietZone = 4;  // modules
constexpr int anyVersion = 0;

constexpr const char *upperHalf = "\u2580";
constexpr const char *lowerHalf = "\u2584";
constexpr const char *full = "\u2588";

constexpr const char *whiteOnBlack = "\x1B[40;97m";
constexpr const char *plain = "\x1B[0m";

}  // namespace

std::string qrCode(const std::string &text, bool colours) {
  const std::unique_ptr<::QRcode, decltype(&QRcode_free)> code(
      QRcode_encodeString(text.c_str(), anyVersion, QR_ECLEVEL_M, QR_MODE_8, /*casesensitive=*/1),
      QRcode_free);
  if (code == nullptr) throw std::runtime_error("there is no QR code for so long a text");
  const auto isLight = [&code](int row, int column) {
    const bool inside = row >= 0 && row < code->width && column >= 0 && column < code->width;
    return !inside || (code->data[row * code->width + column] & 1) == 0;
  };
  std::string drawn;
  for (int row = -quietZone; row < code->width + quietZone; row += 2) {
    if (colours) drawn += whiteOnBlack;
    for (int column = -quietZone; column < code->width + quietZone; ++column) {
      const bool upper = isLight(row, column);
      const bool lower = isLight(row + 1, column);
      drawn += upper && lower ? full : upper ? upperHalf : lower ? lowerHalf : " ";
    }
    drawn += colours ? std::string(plain) + "\n" : "\n";
  }
  return drawn;
}

}  // namespace kx::collector
