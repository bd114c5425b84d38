#include "tools/collector/MessageValues.h"

#if defined(__SSE2__)
#define RAPIDJSON_SSE2
#elif defined(__ARM_NEON)
#define RAPIDJSON_NEON
#endif
#include <rapidjson/reader.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "tools/collector/DocumentRules.h"

namespace kx::collector {

namespace {

// It looks at so many bytes at a time, and one of them has to be the zero that ends the text.
constexpr std::size_t sizeBeyond = 16;
constexpr std::size_t usualElements = 4;

/// Whether nothing unusual is in a text. RapidJSON takes a zero for the end, the second half of a surrogate
/// pair alone for a character, and where it looks at many bytes at a time the last control characters for
/// plain ones; and it is faster where it need not look for what is not UTF-8.
bool isPlain(std::string_view json) {
  unsigned bits = 0;
  bool hasControls = false;
  for (const char character : json) {
    bits |= static_cast<unsigned char>(character);
    hasControls |= character >= '\x1a' && character <= '\x1f';
  }
  return bits < 0x80 && !hasControls && json.find('\0') == std::string_view::npos &&
         json.find("\\u") == std::string_view::npos;
}

// Absent when it is out of range.
template <typename Integer>
std::optional<Integer> integerOf(std::string_view text) {
  Integer number = 0;
  const char *const end = text.data() + text.size();
  const auto [next, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || next != end) return std::nullopt;
  return number;
}
// What ends the number stands behind it. Not every standard library reads fractions by from_chars.
std::optional<double> fractionOf(std::string_view text) {
  char *end = nullptr;
  const double number = std::strtod(text.data(), &end);
  if (!std::isfinite(number) || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// As the document's reader has it: integers without a sign are natural numbers.
JSONValue valueOfNumber(std::string_view text) {
  JSONValue value;
  if (text.find_first_of(".eE") != std::string_view::npos) {
    const auto number = fractionOf(text);
    if (number) value.type = JSONValue::Type::fraction;
    value.fraction = number.value_or(0);
  } else if (text.front() == '-') {
    const auto number = integerOf<std::int64_t>(text);
    if (number) value.type = JSONValue::Type::integer;
    value.integer = number.value_or(0);
  } else {
    const auto number = integerOf<std::uint64_t>(text);
    if (number) value.type = JSONValue::Type::natural;
    value.natural = number.value_or(0);
  }
  return value;
}

}  // namespace

/// Takes what RapidJSON reads, as long as it is what nearly every message is: an array of one object, of keys
/// that are known, no key twice, with scalars, and arrays of them.
class MessageValues::Reader {
 public:
  explicit Reader(MessageValues &values) : values_(values) {}

  bool isWhole() const { return place_ == Place::end; }

  // What RapidJSON calls; false ends it.
  bool Null() { return addOfType(JSONValue::Type::null); }
  bool Bool(bool) { return addOfType(JSONValue::Type::boolean); }
  bool String(const char *text, unsigned size, bool) { return add(JSONValue::ofText({text, size})); }
  bool RawNumber(const char *text, unsigned size, bool) { return add(valueOfNumber({text, size})); }
  bool Key(const char *text, unsigned size, bool) {
    const auto rule = messageRule({text, size});
    if (!rule || values_.values_[*rule]) return false;
    rule_ = *rule;
    return true;
  }
  bool StartObject() { return go(Place::array, Place::message); }
  bool EndObject(unsigned) { return go(Place::message, Place::lastBracket); }
  bool StartArray() {
    if (go(Place::begin, Place::array)) return true;
    if (!go(Place::message, Place::elements)) return false;
    values_.elements_.emplace_back().reserve(usualElements);
    return true;
  }
  bool EndArray(unsigned) {
    if (go(Place::lastBracket, Place::end)) return true;
    if (!go(Place::elements, Place::message)) return false;
    const auto &elements = values_.elements_.back();
    JSONValue value;
    value.type = JSONValue::Type::array;
    value.elements = elements.data();
    value.size = elements.size();
    return add(value);
  }
  // Numbers do not come so.
  static bool Int(int) { return false; }
  static bool Uint(unsigned) { return false; }
  static bool Int64(std::int64_t) { return false; }
  static bool Uint64(std::uint64_t) { return false; }
  static bool Double(double) { return false; }

 private:
  enum class Place { begin, array, message, elements, lastBracket, end };

  bool go(Place from, Place to) {
    if (place_ != from) return false;
    place_ = to;
    return true;
  }

  bool addOfType(JSONValue::Type type) {
    JSONValue value;
    value.type = type;
    return add(value);
  }

  bool add(const JSONValue &value) {
    if (!value) return false;
    if (place_ == Place::elements) {
      values_.elements_.back().push_back(value);
    } else if (place_ == Place::message) {
      values_.values_[rule_] = value;
    } else {
      return false;
    }
    return true;
  }

  MessageValues &values_;
  Place place_ = Place::begin;
  std::size_t rule_ = 0;  // of the key that was read
};

MessageValues::MessageValues() : values_(messageRuleCount()) {}

MessageValues::MessageValues(const Document &message) : MessageValues() {
  for (const auto &[key, value] : message.get_ref<const Document::object_t &>()) {
    if (const auto rule = messageRule(key)) values_[*rule] = valueOf(value, elements_);
  }
}

std::optional<MessageValues> MessageValues::read(std::string_view json) {
  if (!isPlain(json)) return std::nullopt;
  MessageValues values;
  // In which RapidJSON unescapes texts, and where they stay.
  values.text_.reserve(json.size() + sizeBeyond);
  values.text_.assign(json.begin(), json.end());
  values.text_.resize(json.size() + sizeBeyond);
  rapidjson::InsituStringStream stream(values.text_.data());
  Reader handler(values);
  rapidjson::Reader reader;
  constexpr unsigned flags = rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag;
  if (reader.Parse<flags>(stream, handler).IsError() || !handler.isWhole()) return std::nullopt;
  for (std::size_t rule = 0; rule < values.values_.size(); ++rule) {
    if (!keepsMessageRule(rule, values.values_[rule])) return std::nullopt;
  }
  return values;
}

const JSONValue &MessageValues::operator[](std::string_view key) const {
  static const JSONValue absent;
  const auto rule = messageRule(key);
  return rule ? values_[*rule] : absent;
}

}  // namespace kx::collector
