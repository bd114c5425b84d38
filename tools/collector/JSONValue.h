#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <vector>

#include "tools/collector/Document.h"

namespace kx::collector {

/// A JSON value as the rules look at it. It does not own its text, nor the elements of an array.
struct JSONValue {
  enum class Type { absent, null, boolean, fraction, integer, natural, text, array, object };

  Type type = Type::absent;
  std::string_view text{};
  double fraction = 0;
  std::int64_t integer = 0;   ///< with a sign
  std::uint64_t natural = 0;  ///< without one
  const JSONValue *elements = nullptr;
  std::size_t size = 0;  ///< of an array

  static JSONValue ofText(std::string_view text);

  explicit operator bool() const { return type != Type::absent; }
  bool isText() const { return type == Type::text; }
  bool isInteger() const { return type == Type::integer || type == Type::natural; }
  bool isNumber() const { return type == Type::fraction || isInteger(); }
  double number() const;
  /// Of an integer, if it fits.
  bool fitsInteger() const { return type == Type::integer || natural <= INT64_MAX; }
  std::int64_t signedInteger() const {
    return type == Type::integer ? integer : static_cast<std::int64_t>(natural);
  }

  const JSONValue *begin() const { return elements; }
  const JSONValue *end() const { return elements + size; }
};

/// Where the elements of arrays live.
using ArrayElements = std::list<std::vector<JSONValue>>;

/// The document has to outlive it.
JSONValue valueOf(const Document &document, ArrayElements &elements);

/// A text or a number as JSON text that is safe to print on a terminal, cut off where it is long.
std::string printable(const JSONValue &value);

}  // namespace kx::collector
