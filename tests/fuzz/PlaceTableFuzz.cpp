#include <cstring>

#include "platform/linux/geocoding/PlaceTable.h"
#include "platform/linux/geocoding/PlaceTableFormat.h"
#include "tests/fuzz/Fuzzing.h"
#include "tests/platform/linux/geocoding/SmallTable.h"

// Whatever the table's file holds, places are texts or absent.

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  kx::LocationCoordinate position;
  constexpr std::size_t before = 1 + 2 * sizeof(double);
  if (size < before) return 0;
  std::memcpy(&position.latitude, bytes + 1, sizeof(double));
  std::memcpy(&position.longitude, bytes + 1 + sizeof(double), sizeof(double));
  std::string text(reinterpret_cast<const char *>(bytes) + before, size - before);
  // Mostly under a checksum that says it is right, which nobody would find by changing bytes.
  if (bytes[0] % 8 != 0 && text.size() >= kx::placetable::checkedOffset) kx::setChecksum(text);
  const std::vector<std::uint8_t> copy(text.begin(), text.end());  // whose end the sanitizer knows
  const auto table = kx::PlaceTable::in(copy.data(), copy.size());
  if (!table) return 0;
  for (const double within : {50e3, 1e9}) {
    const auto place = table->nearest(position, within);
    if (!place) continue;
    kx::require(kx::isUTF8(place->country) && kx::isUTF8(place->name) && kx::isUTF8(place->timeZone) &&
                    kx::isUTF8(place->region.value_or("")),
                "a place's texts are texts");
  }
  return 0;
}
