#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kx::collector {

/// Some bytes of a text.
struct Span {
  std::size_t offset = 0;
  std::size_t length = 0;
};

/// Where a member of an object stands in a JSON text.
struct MemberPlace {
  Span key;  ///< with its quotation marks
  Span value;
};

/// Looks for a member of the object that the text is, or of the only one in the array that it is; with an
/// `outer` key, of the object which that member is. The text has to be valid JSON.
std::optional<MemberPlace> placeOf(std::string_view json, const std::string &outer, const std::string &key);

}  // namespace kx::collector
