#include "tools/places/PlaceTableWriter.h"

#include <zlib.h>

#include <cstdint>
#include <map>
#include <stdexcept>
#include <utility>

#include "platform/linux/geocoding/PlaceTableFormat.h"

namespace kx::places {

using namespace placetable;

namespace {

void append16(std::string &bytes, std::uint16_t number) {
  bytes += static_cast<char>(number & 0xff);
  bytes += static_cast<char>(number >> 8);
}

void append32(std::string &bytes, std::uint32_t number) {
  append16(bytes, static_cast<std::uint16_t>(number & 0xffff));
  append16(bytes, static_cast<std::uint16_t>(number >> 16));
}

std::uint32_t checksumOf(const std::string &bytes) {
  return static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<const Bytef *>(bytes.data()), static_cast<uInt>(bytes.size())));
}

/// The texts of a table, each of them once.
class Texts {
 public:
  /// Where `text` is; it is added when it is not there yet.
  std::uint32_t offsetOf(const std::string &text) {
    const auto [known, isNew] = offsets_.emplace(text, static_cast<std::uint32_t>(bytes_.size()));
    if (isNew) {
      if (text.size() > longestText) throw std::length_error("too long for a table of places: " + text);
      bytes_ += static_cast<char>(text.size());
      bytes_ += text;
    }
    return known->second;
  }
  const std::string &bytes() const { return bytes_; }

 private:
  std::map<std::string, std::uint32_t> offsets_;
  std::string bytes_;
};

/// Entries of a table that places refer to by their number.
class Entries {
 public:
  explicit Entries(std::string what) : what_(std::move(what)) {}

  /// The number of the entry for `key`; `makeBytes` is called when there is none yet.
  template <class MakeBytes>
  std::uint16_t numberOf(const std::string &key, MakeBytes makeBytes) {
    const auto known = numbers_.find(key);
    if (known != numbers_.end()) return known->second;
    if (numbers_.size() > UINT16_MAX) throw std::length_error("too many " + what_ + " for a table of places");
    const auto number = static_cast<std::uint16_t>(numbers_.size());
    bytes_ += makeBytes();
    numbers_.emplace(key, number);
    return number;
  }
  std::uint32_t count() const { return static_cast<std::uint32_t>(numbers_.size()); }
  const std::string &bytes() const { return bytes_; }

 private:
  const std::string what_;
  std::map<std::string, std::uint16_t> numbers_;
  std::string bytes_;
};

}  // namespace

std::string placeTable(const std::vector<City> &places, const RegionNames &regionNames) {
  Texts texts;
  Entries regions("regions");
  Entries zones("time zones");
  std::string entries;
  for (const City &place : places) {
    const auto regionEntry = [&] {
      const auto name = regionNames.find(place.region);
      std::string entry = place.country;
      append16(entry, 0);
      const bool isKnown = name != regionNames.end() && !name->second.empty();
      append32(entry, isKnown ? texts.offsetOf(name->second) : noText);
      return entry;
    };
    const auto zoneEntry = [&] {
      std::string entry;
      append32(entry, texts.offsetOf(place.timeZone));
      return entry;
    };
    append32(entries, static_cast<std::uint32_t>(place.latitude));
    append32(entries, static_cast<std::uint32_t>(place.longitude));
    append32(entries, texts.offsetOf(place.name));
    append16(entries, regions.numberOf(place.region, regionEntry));
    append16(entries, zones.numberOf(place.timeZone, zoneEntry));
  }

  std::string checked;
  append32(checked, static_cast<std::uint32_t>(places.size()));
  append32(checked, regions.count());
  append32(checked, zones.count());
  append32(checked, static_cast<std::uint32_t>(texts.bytes().size()));
  checked += entries + regions.bytes() + zones.bytes() + texts.bytes();

  std::string bytes(magic);
  append32(bytes, version);
  append32(bytes, checksumOf(checked));
  return bytes + checked;
}

}  // namespace kx::places
