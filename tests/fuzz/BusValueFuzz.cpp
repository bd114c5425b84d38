#include <algorithm>
#include <cmath>
#include <memory>

#include "platform/linux/bus/GLibPointers.h"
#include "platform/linux/location/GeoClueLocation.h"
#include "platform/linux/telephony/ModemReading.h"
#include "tests/fuzz/Fuzzing.h"

// Whatever services say on the bus, it is read as what it is or not at all.

namespace {

using kx::GLibPointer;
using kx::require;

/// A value of that type in GVariant's own form; like what comes by the bus, it is valid, if need be by having
/// defaults in it.
GLibPointer<GVariant> valueOf(const char *type, const std::string &bytes) {
  const std::unique_ptr<GBytes, void (*)(GBytes *)> copy(g_bytes_new(bytes.data(), bytes.size()),
                                                         &g_bytes_unref);
  const GLibPointer<GVariant> raw(
      g_variant_ref_sink(g_variant_new_from_bytes(G_VARIANT_TYPE(type), copy.get(), FALSE)));
  return GLibPointer<GVariant>(g_variant_get_normal_form(raw.get()));
}

void checkLocation(GVariant *properties) {
  const auto location = kx::locationFromProperties(properties);
  if (!location) return;
  require(std::abs(location->coordinate.latitude) <= 90 && std::abs(location->coordinate.longitude) <= 180,
          "a position is on earth");
  require(std::isfinite(location->horizontalAccuracy) && location->horizontalAccuracy >= 0,
          "an accuracy is a length");
  require(std::isfinite(location->altitude), "an altitude is a number");
}

void checkOperator(const std::string &text) {
  const auto found = kx::homeOperatorOf(text);
  if (!found) return;
  require(found->countryCode + found->networkCode == text, "the codes are the text");
  require(found->countryCode.size() == 3 && (text.size() == 5 || text.size() == 6),
          "the codes have their lengths");
  require(std::all_of(text.begin(), text.end(), [](char each) { return each >= '0' && each <= '9'; }),
          "the codes are digits");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  if (size == 0) return 0;
  const std::string rest(reinterpret_cast<const char *>(bytes) + 1, size - 1);
  switch (bytes[0] % 4) {
    case 0: {
      const auto modem = kx::modemOf(valueOf("(a{oa{sa{sv}}})", rest).get());
      if (modem) kx::radioAccessTechnologyOf(*modem);
      break;
    }
    case 1:
      kx::homeOperatorIn(valueOf("(v)", rest).get());
      break;
    case 2:
      checkLocation(valueOf("a{sv}", rest).get());
      break;
    default:
      checkOperator(rest);
  }
  return 0;
}
