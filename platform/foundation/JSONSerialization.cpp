#include "platform/foundation/JSONSerialization.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace kx {

namespace {

template <unsigned flags>
using Writer = rapidjson::Writer<rapidjson::StringBuffer, rapidjson::UTF8<>, rapidjson::UTF8<>,
                                 rapidjson::CrtAllocator, flags>;

template <class AnyWriter>
bool writeText(AnyWriter &writer, const std::string &text) {
  return writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

template <class AnyWriter>
bool write(AnyWriter &writer, const Value &value) {
  if (value.text() != nullptr) return writeText(writer, *value.text());
  if (value.integer() != nullptr) return writer.Int64(*value.integer());
  if (value.number() != nullptr) return writer.Double(*value.number());
  if (value.boolean() != nullptr) return writer.Bool(*value.boolean());
  if (value.array() != nullptr) {
    writer.StartArray();
    for (const Value &element : *value.array()) {
      if (!write(writer, element)) return false;
    }
    return writer.EndArray();
  }
  writer.StartObject();
  for (const Dictionary::Entry &entry : *value.dictionary()) {
    if (!writeText(writer, entry.key) || !write(writer, entry.value)) return false;
  }
  return writer.EndObject();
}

}  // namespace

std::optional<std::string> JSONSerialization::dataWithJSONObject(const Value &object) {
  if (object.array() == nullptr && object.dictionary() == nullptr) return std::nullopt;
  rapidjson::StringBuffer text;
  Writer<rapidjson::kWriteValidateEncodingFlag> writer(text);
  if (!write(writer, object)) return std::nullopt;
  return std::string(text.GetString(), text.GetSize());
}

std::string JSONSerialization::descriptionOf(const Value &value) {
  rapidjson::StringBuffer text;
  Writer<rapidjson::kWriteNanAndInfFlag> writer(text);
  write(writer, value);
  return std::string(text.GetString(), text.GetSize());
}

}  // namespace kx
