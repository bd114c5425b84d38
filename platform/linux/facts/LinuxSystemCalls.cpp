#include "platform/linux/facts/LinuxSystemCalls.h"

#include <glib.h>
#include <sys/random.h>
#include <sys/utsname.h>

#include <array>
#include <cstdint>
#include <memory>

#include "platform/linux/facts/SystemText.h"

namespace kx {

double LinuxClock::timeIntervalSince1970() {
  return static_cast<double>(g_get_real_time()) / 1e6;
}

std::optional<std::string> LinuxSystemName::machine() {
  utsname names{};
  ::uname(&names);
  return validText(names.machine);
}

std::string LinuxProcessInfo::globallyUniqueString() {
  // From the kernel: GLib's own generator goes on with the same sequence in both processes after a fork.
  std::array<std::uint8_t, 16> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    const std::unique_ptr<gchar, void (*)(gpointer)> text(g_uuid_string_random(), &g_free);
    return text.get();
  }
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0f) | 0x40);  // version 4: random
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3f) | 0x80);  // variant of RFC 4122
  constexpr std::size_t length = 36;
  std::string text;
  text.reserve(length);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    constexpr const char *digits = "0123456789ABCDEF";
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 0x0f];
  }
  return text;
}

}  // namespace kx
