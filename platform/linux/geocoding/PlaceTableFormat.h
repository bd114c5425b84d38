#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// The layout of the file in which the build (tools/places) leaves the places of the world and in which
// PlaceTable finds them. It is used as it lies in the file: nothing is unpacked.
//
// Every number is unsigned, 32 bits wide and little-endian unless it says otherwise. A text is known by its
// offset in the texts.
//
//   header    magic (8 bytes), version, checksum (CRC-32 as zlib's, of everything that follows it), number of
//             places, of regions and of zones, size of the texts
//   places    from south to north: latitude and longitude (both signed, 1/100000 degree), name, region (16
//             bits), zone (16 bits)
//   regions   country (2 letters), nothing (16 bits), name; `noText` where the region is unknown
//   zones     identifier
//   texts     each its length in bytes (8 bits), then UTF-8

namespace kx::placetable {

inline constexpr std::string_view magic = "KXPLACES";
inline constexpr std::uint32_t version = 1;

inline constexpr std::size_t largestSize = 0x7FFFFFFF;
inline constexpr std::size_t versionOffset = 8;
inline constexpr std::size_t checksumOffset = 12;
inline constexpr std::size_t checkedOffset = 16;  // where what is under the checksum begins
inline constexpr std::size_t headerSize = 32;
inline constexpr std::size_t zoneSize = 4;
inline constexpr std::size_t placeSize = 16;
inline constexpr std::size_t regionSize = 8;

inline constexpr std::int32_t unitsPerDegree = 100000;
inline constexpr std::uint32_t noText = 0xFFFFFFFF;
inline constexpr std::size_t longestText = 255;  // bytes

}  // namespace kx::placetable
