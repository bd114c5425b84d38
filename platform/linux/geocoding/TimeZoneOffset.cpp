#include "platform/linux/geocoding/TimeZoneOffset.h"

#include <glib.h>

#include <cmath>
#include <memory>

namespace kx {

namespace {

// GLib opens what is named and complains loudly of a file that is no time zone's, as some beside them are.
bool looksLikeIdentifier(const std::string &text) {
  constexpr const char *letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  return text.find_first_of(letters) == 0 &&
         text.find_first_not_of(std::string(letters) + "0123456789_+-/") == std::string::npos;
}

}  // namespace

std::optional<std::int64_t> secondsFromGMT(const std::string &timeZone, double at) {
  if (!looksLikeIdentifier(timeZone)) return std::nullopt;
  const std::unique_ptr<GTimeZone, void (*)(GTimeZone *)> zone(g_time_zone_new_identifier(timeZone.c_str()),
                                                               &g_time_zone_unref);
  if (zone == nullptr) return std::nullopt;
  const gint interval =
      g_time_zone_find_interval(zone.get(), G_TIME_TYPE_UNIVERSAL, static_cast<gint64>(std::floor(at)));
  if (interval < 0) return std::nullopt;
  return g_time_zone_get_offset(zone.get(), interval);
}

}  // namespace kx
