#include "tools/simulated-drive/NmeaSentences.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace kx::drive {

namespace {

constexpr double knotsInMetrePerSecond = 1.9438444924406046;

template <class... Arguments>
std::string formatted(const char *format, Arguments... arguments) {
  std::array<char, 128> text;
  const int length = std::snprintf(text.data(), text.size(), format, arguments...);
  return {text.data(), static_cast<std::size_t>(length)};
}

/// "5230.0000,N": whole degrees, of so many digits, and minutes; then the hemisphere.
std::string angle(double degrees, int digits, char positive, char negative) {
  constexpr int partsOfMinute = 10000;
  const auto parts = static_cast<long>(std::lround(std::abs(degrees) * 60 * partsOfMinute));
  return formatted("%0*ld%02ld.%04ld,%c", digits, parts / (60L * partsOfMinute), parts / partsOfMinute % 60,
                   parts % partsOfMinute, degrees < 0 ? negative : positive);
}

std::string sentence(const std::string &content) {
  unsigned int checksum = 0;
  for (const char character : content) checksum ^= static_cast<unsigned char>(character);
  return "$" + content + formatted("*%02X\r\n", checksum);
}

}  // namespace

std::string nmeaSentences(const Fix &fix, double altitude, std::time_t time) {
  std::tm utc{};
  gmtime_r(&time, &utc);
  const std::string timeOfDay = formatted("%02d%02d%02d.00", utc.tm_hour, utc.tm_min, utc.tm_sec);
  const std::string date = formatted("%02d%02d%02d", utc.tm_mday, utc.tm_mon + 1, utc.tm_year % 100);
  const std::string position =
      angle(fix.position.latitude, 2, 'N', 'S') + "," + angle(fix.position.longitude, 3, 'E', 'W');
  // By 8 satellites, with a horizontal dilution of precision of 1.0.
  return sentence("GPRMC," + timeOfDay + ",A," + position + "," +
                  formatted("%.1f,%.1f", fix.speed * knotsInMetrePerSecond, fix.course) + "," + date +
                  ",,,A") +
         sentence("GPGGA," + timeOfDay + "," + position + ",1,08,1.0," + formatted("%.1f", altitude) +
                  ",M,45.0,M,,");
}

}  // namespace kx::drive
