#include <rapidjson/writer.h>

#include <utility>

#include "KXPublisher/platform/foundation/JSONSerialization.h"

namespace kx {

namespace {

/// A text as a stream that RapidJSON writes to.
class TextStream {
 public:
  using Ch = char;

  void Put(char character) { text.push_back(character); }
  void Flush() {}

  std::string text;
};

/// Writes values. Brackets and commas are its own, for which RapidJSON would keep a stack; texts, their
/// escapes and their validation, and numbers are RapidJSON's.
template <unsigned flags>
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
  if (!ValueWriter<rapidjson::kWriteValidateEncodingFlag>(stream).write(object)) return std::nullopt;
  return std::move(stream.text);
}

std::string JSONSerialization::descriptionOf(const Value &value) {
  TextStream stream;
  ValueWriter<rapidjson::kWriteNanAndInfFlag>(stream).write(value);
  return std::move(stream.text);
}

}  // namespace kx
