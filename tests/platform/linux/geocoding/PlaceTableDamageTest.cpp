#include <glib.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/linux/geocoding/PlaceTable.h"
#include "platform/linux/geocoding/PlaceTableFormat.h"
#include "tests/platform/linux/geocoding/SmallTable.h"

namespace kx {
namespace {

using namespace placetable;

/// A table's bytes at the very end of a piece of memory, so that a sanitizer sees any step beyond.
class Copy {
 public:
  explicit Copy(const std::string &bytes) : bytes_(new std::uint8_t[bytes.size()]), size_(bytes.size()) {
    std::memcpy(bytes_.get(), bytes.data(), bytes.size());
  }
  std::optional<PlaceTable> table() const { return PlaceTable::in(bytes_.get(), size_); }

 private:
  const std::unique_ptr<std::uint8_t[]> bytes_;
  const std::size_t size_;
};

std::string wholeTable() {
  return smallTable({placeAt(0, 0, "First"), placeAt(0.1, 0.1, "Second", "FR", "Europe/Paris"),
                     placeAt(50, -120, "Third", "CA", "America/Vancouver")});
}

void put(std::string &bytes, std::size_t offset, std::uint32_t number, std::size_t size) {
  for (std::size_t index = 0; index < size; ++index) {
    bytes[offset + index] = static_cast<char>(number >> 8 * index & 0xff);
  }
}

/// The whole table, of which a number says something else, under a checksum that says it is right.
std::string tableWith(std::size_t offset, std::uint32_t number, std::size_t size) {
  std::string bytes = wholeTable();
  put(bytes, offset, number, size);
  setChecksum(bytes);
  return bytes;
}

TEST(PlaceTableDamage, NoneInTheTableOfTheseTests) {
  const Copy whole(wholeTable());
  ASSERT_TRUE(whole.table());
  EXPECT_EQ(whole.table()->nearest({0, 0}, 1000)->name, "First");
}

TEST(PlaceTableDamage, AnyMissingEndIsNoticed) {
  const std::string whole = wholeTable();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(Copy(whole.substr(0, size)).table()) << size << " bytes";
    std::string relabelled = whole.substr(0, size);
    if (size >= checkedOffset) setChecksum(relabelled);
    EXPECT_FALSE(Copy(relabelled).table()) << size << " bytes under a checksum of their own";
  }
}

TEST(PlaceTableDamage, AnythingBehindTheEndIsNoticed) {
  std::string longer = wholeTable() + '\0';
  EXPECT_FALSE(Copy(longer).table());
  setChecksum(longer);
  EXPECT_FALSE(Copy(longer).table());
}

TEST(PlaceTableDamage, AnyFlippedBitIsNoticed) {
  const std::string whole = wholeTable();
  for (std::size_t bit = 0; bit < 8 * whole.size(); ++bit) {
    std::string flipped = whole;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
    EXPECT_FALSE(Copy(flipped).table()) << "bit " << bit;
  }
}

TEST(PlaceTableDamage, CountsThatDoNotFitAreRefused) {
  for (const std::size_t offset : {16U, 20U, 24U, 28U}) {
    for (const std::uint32_t count : {0U, 1U, 0x1000U, 0x10000000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
      EXPECT_FALSE(Copy(tableWith(offset, count, 4)).table()) << count << " at " << offset;
    }
  }
  // Places that wrap around 32 bits to the right size.
  EXPECT_FALSE(Copy(tableWith(16, 0x10000003U, 4)).table());
}

TEST(PlaceTableDamage, AReferenceThatLeadsOutsideMakesThePlaceUnknown) {
  constexpr std::size_t first = headerSize;
  const std::size_t firstRegion = first + 3 * placeSize;
  const std::size_t firstZone = firstRegion + 3 * regionSize;
  const std::size_t texts = firstZone + 3 * zoneSize;
  const auto textsSize = static_cast<std::uint32_t>(wholeTable().size() - texts);

  struct Reference {
    const char *what;
    std::size_t offset;
    std::uint32_t number;
    std::size_t size;
  };
  const std::vector<Reference> references{
      {"name", first + 8, textsSize, 4},
      {"name", first + 8, 0xFFFFFFFF, 4},
      {"name whose end is outside", first + 8, textsSize - 1, 4},
      {"region", first + 12, 3, 2},
      {"region", first + 12, 0xFFFF, 2},
      {"zone", first + 14, 3, 2},
      {"zone", first + 14, 0xFFFF, 2},
      {"country that is no UTF-8", firstRegion, 0xC3C3, 2},
      {"region's name", firstRegion + 4, textsSize, 4},
      {"region's name", firstRegion + 4, 0xFFFFFFFE, 4},
      {"zone's identifier", firstZone, textsSize, 4},
      {"length of the first text", texts, 0xFF, 1},
      {"no text", texts, 0, 1},
      {"text that is no UTF-8", texts + 1, 0xFF, 1},
  };
  for (const Reference &reference : references) {
    const Copy damaged(tableWith(reference.offset, reference.number, reference.size));
    ASSERT_TRUE(damaged.table()) << reference.what;
    EXPECT_FALSE(damaged.table()->nearest({0, 0}, 1000)) << reference.what << ": " << reference.number;
    EXPECT_TRUE(damaged.table()->nearest({50, -120}, 1000)) << reference.what << ": " << reference.number;
  }
}

TEST(PlaceTableDamage, ATextThatGoesOneByteBeyondTheEndMakesThePlaceUnknown) {
  const std::string last = "America/Vancouver";
  const auto size = static_cast<std::uint32_t>(last.size());
  const std::size_t offset = wholeTable().size() - size - 1;
  ASSERT_EQ(wholeTable().substr(offset + 1), last);
  EXPECT_TRUE(Copy(tableWith(offset, size, 1)).table()->nearest({50, -120}, 1000));
  EXPECT_FALSE(Copy(tableWith(offset, size + 1, 1)).table()->nearest({50, -120}, 1000));
}

TEST(PlaceTableDamage, NothingIsReadOutsideATableWithArbitraryContents) {
  std::mt19937 random(1);
  const std::string whole = wholeTable();
  const auto isText = [](const std::string &text) {
    return !text.empty() && g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) != FALSE;
  };
  int tables = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string bytes = whole;
    for (unsigned changes = 1 + random() % 8; changes > 0; --changes) {
      bytes[headerSize + random() % (bytes.size() - headerSize)] = static_cast<char>(random());
    }
    setChecksum(bytes);
    const Copy damaged(bytes);
    const auto table = damaged.table();
    if (!table) continue;
    ++tables;
    for (const LocationCoordinate position : {LocationCoordinate{0, 0}, {50, -120}, {-90, 0}, {90, 180}}) {
      if (const auto place = table->nearest(position, 1e9)) {
        EXPECT_TRUE(isText(place->country) && isText(place->name) && isText(place->timeZone));
        EXPECT_TRUE(!place->region || isText(*place->region));
      }
    }
  }
  EXPECT_EQ(tables, 3000);
}

}  // namespace
}  // namespace kx
