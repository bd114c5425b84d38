#include <rapidjson/encodings.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "KXPublisher/platform/foundation/JSONSerialization.h"

namespace kx {

namespace {

constexpr std::size_t usualSize = 1024;  // bytes; a message with all its keys has some 800

/// A text as a stream that RapidJSON writes to.
class TextStream {
 public:
  using Ch = char;

  void Put(char character) { text.push_back(character); }
  void Flush() {}

  std::string text;
};

/// Whether JSON has the text as it is, without a further look at it.
bool isPlain(const std::string &text) {
  return std::all_of(text.begin(), text.end(), [](char character) {
    return character >= ' ' && character <= '~' && character != '"' && character != '\\';
  });
}

/// A text as a stream that RapidJSON reads characters from. It ends with zeros, as many as are asked for:
/// RapidJSON's own, which its writer validates by, is read past its end where it is cut off in a character.
class CheckedText {
 public:
  explicit CheckedText(const std::string &text) : text_(text) {}

  bool isUTF8() {
    while (at_ < text_.size()) {
      if (!rapidjson::UTF8<>::Validate(*this, *this)) return false;
    }
    return true;
  }

  char Take() { return at_ < text_.size() ? text_[at_++] : '\0'; }
  /// What has been validated goes nowhere.
  void Put(char) {}

 private:
  const std::string &text_;
  std::size_t at_ = 0;
};

/// Writes values. Brackets and commas are its own, for which RapidJSON would keep a stack; texts, their
/// escapes, and numbers are RapidJSON's.
template <unsigned flags, bool areTextsChecked>
class ValueWriter : private rapidjson::Writer<TextStream, rapidjson::UTF8<>, rapidjson::UTF8<>,
                                              rapidjson::CrtAllocator, flags> {
 public:
  explicit ValueWriter(TextStream &stream) : ValueWriter::Writer(stream), stream_(stream) {}

  bool write(const Value &value) {
    if (value.text() != nullptr) return writeText(*value.text());
    if (value.integer() != nullptr) return this->WriteInt64(*value.integer());
    if (value.number() != nullptr) return this->WriteDouble(*value.number());
    if (value.boolean() != nullptr) return this->WriteBool(*value.boolean());
    if (value.array() != nullptr) return writeArray(*value.array());
    return writeDictionary(*value.dictionary());
  }

 private:
  bool writeText(const std::string &text) {
    if (isPlain(text)) {
      stream_.Put('"');
      stream_.text += text;
      stream_.Put('"');
      return true;
    }
    if (areTextsChecked && !CheckedText(text).isUTF8()) return false;
    return this->WriteString(text.data(), static_cast<rapidjson::SizeType>(text.size()));
  }

  bool writeArray(const Array &array) {
    char separator = '[';
    for (const Value &element : array) {
      stream_.Put(separator);
      if (!write(element)) return false;
      separator = ',';
    }
    if (array.empty()) stream_.Put('[');
    stream_.Put(']');
    return true;
  }

  bool writeDictionary(const Dictionary &dictionary) {
    char separator = '{';
    for (const Dictionary::Entry &entry : dictionary) {
      stream_.Put(separator);
      if (!writeText(entry.key)) return false;
      stream_.Put(':');
      if (!write(entry.value)) return false;
      separator = ',';
    }
    if (dictionary.empty()) stream_.Put('{');
    stream_.Put('}');
    return true;
  }

  TextStream &stream_;
};

}  // namespace

std::optional<std::string> JSONSerialization::dataWithJSONObject(const Value &object) {
  if (object.array() == nullptr && object.dictionary() == nullptr) return std::nullopt;
  TextStream stream;
  stream.text.reserve(usualSize);
  if (!ValueWriter<rapidjson::kWriteNoFlags, true>(stream).write(object)) return std::nullopt;
  return std::move(stream.text);
}

std::string JSONSerialization::descriptionOf(const Value &value) {
  TextStream stream;
  ValueWriter<rapidjson::kWriteNanAndInfFlag, false>(stream).write(value);
  return std::move(stream.text);
}

}  // namespace kx
