#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

class Value;
using Array = std::vector<Value>;

/// A small map from text to `Value` that keeps the order in which its keys were first set. Searched linearly:
/// a message has thirty keys, and at that size nothing is faster or smaller.
class KX_EXPORT Dictionary {
 public:
  struct Entry;

  Dictionary();
  Dictionary(std::initializer_list<Entry> entries);
  Dictionary(const Dictionary &);
  Dictionary(Dictionary &&) noexcept;
  Dictionary &operator=(const Dictionary &);
  Dictionary &operator=(Dictionary &&) noexcept;
  ~Dictionary();

  /// Makes room for so many entries at once.
  void reserve(std::size_t entries);
  /// Stores `value` under `key`, replacing an earlier value.
  void set(std::string_view key, Value value);
  /// Copies every entry of `other` into this map; on a key that both hold, the value of `other` wins.
  void addEntriesFrom(const Dictionary &other);
  /// The value under `key`, or a null pointer. Valid until the map next changes.
  const Value *find(std::string_view key) const;

  bool empty() const;
  std::size_t size() const;
  const Entry *begin() const;
  const Entry *end() const;

  /// Equal when both hold equal values under the same keys, in whatever order.
  bool operator==(const Dictionary &other) const;
  bool operator!=(const Dictionary &other) const { return !(*this == other); }

  /// The map as compact JSON text, for people to read: it never fails, not even on what is no JSON; see
  /// `JSONSerialization::descriptionOf`.
  std::string description() const;

 private:
  std::vector<Entry> entries_;
};

/// One JSON-compatible value: a boolean, a signed 64-bit integer, a double, a text, an array or a map. There
/// is no null: what is absent is left out. Texts are UTF-8.
class KX_EXPORT Value {
 public:
  template <class Integer,
            std::enable_if_t<std::is_integral_v<Integer> && !std::is_same_v<Integer, bool>, int> = 0>
  Value(Integer integer) : value_(static_cast<std::int64_t>(integer)) {
    static_assert(std::is_signed_v<Integer> || sizeof(Integer) < sizeof(std::int64_t));
  }
  Value(bool boolean) : value_(boolean) {}
  Value(double number) : value_(number) {}
  Value(std::string text) : value_(std::move(text)) {}
  Value(std::string_view text) : value_(std::string(text)) {}
  Value(const char *text) : value_(std::string(text)) {}
  Value(Array array) : value_(std::move(array)) {}
  Value(Dictionary dictionary) : value_(std::move(dictionary)) {}
  Value(const void *) = delete;  // would be taken for a boolean

  /// The value as one of its kinds, or a null pointer when it is of another.
  const bool *boolean() const { return std::get_if<bool>(&value_); }
  const std::int64_t *integer() const { return std::get_if<std::int64_t>(&value_); }
  const double *number() const { return std::get_if<double>(&value_); }
  const std::string *text() const { return std::get_if<std::string>(&value_); }
  const Array *array() const { return std::get_if<Array>(&value_); }
  const Dictionary *dictionary() const { return std::get_if<Dictionary>(&value_); }

  bool operator==(const Value &other) const { return value_ == other.value_; }
  bool operator!=(const Value &other) const { return !(*this == other); }

  /// A text as it is, everything else as compact JSON; see `Dictionary::description`.
  std::string description() const;

 private:
  std::variant<bool, std::int64_t, double, std::string, Array, Dictionary> value_;
};

struct Dictionary::Entry {
  std::string key;
  Value value;

  bool operator==(const Entry &other) const { return key == other.key && value == other.value; }
};

inline void Dictionary::reserve(std::size_t entries) {
  entries_.reserve(entries);
}

}  // namespace kx
