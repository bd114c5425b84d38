#include "tools/collector/JSONValue.h"

namespace kx::collector {

JSONValue JSONValue::ofText(std::string_view text) {
  JSONValue value;
  value.type = Type::text;
  value.text = text;
  return value;
}

double JSONValue::number() const {
  if (type == Type::fraction) return fraction;
  return type == Type::integer ? static_cast<double>(integer) : static_cast<double>(natural);
}

JSONValue valueOf(const Document &document, ArrayElements &elements) {
  JSONValue value;
  switch (document.type()) {
    case Document::value_t::object:
      value.type = JSONValue::Type::object;
      break;
    case Document::value_t::array: {
      auto &values = elements.emplace_back();
      for (const Document &element : document) values.push_back(valueOf(element, elements));
      value.type = JSONValue::Type::array;
      value.elements = values.data();
      value.size = values.size();
      break;
    }
    case Document::value_t::string:
      return JSONValue::ofText(document.get_ref<const std::string &>());
    case Document::value_t::boolean:
      value.type = JSONValue::Type::boolean;
      break;
    case Document::value_t::number_integer:
      value.type = JSONValue::Type::integer;
      value.integer = document.get<std::int64_t>();
      break;
    case Document::value_t::number_unsigned:
      value.type = JSONValue::Type::natural;
      value.natural = document.get<std::uint64_t>();
      break;
    case Document::value_t::number_float:
      value.type = JSONValue::Type::fraction;
      value.fraction = document.get<double>();
      break;
    default:
      value.type = JSONValue::Type::null;
  }
  return value;
}

std::string printable(const JSONValue &value) {
  switch (value.type) {
    case JSONValue::Type::text:
      return printable(Document(std::string(value.text)));
    case JSONValue::Type::fraction:
      return printable(Document(value.fraction));
    case JSONValue::Type::integer:
      return printable(Document(value.integer));
    case JSONValue::Type::natural:
      return printable(Document(value.natural));
    default:
      return printable(Document());
  }
}

}  // namespace kx::collector
