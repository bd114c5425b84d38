#include "tools/collector/Value.h"

namespace kx::collector {

Value Value::ofText(std::string_view text) {
  Value value;
  value.type = Type::text;
  value.text = text;
  return value;
}

double Value::number() const {
  if (type == Type::fraction) return fraction;
  return type == Type::integer ? static_cast<double>(integer) : static_cast<double>(natural);
}

Value valueOf(const Document &document, ArrayElements &elements) {
  Value value;
  switch (document.type()) {
    case Document::value_t::object:
      value.type = Value::Type::object;
      break;
    case Document::value_t::array: {
      auto &values = elements.emplace_back();
      for (const Document &element : document) values.push_back(valueOf(element, elements));
      value.type = Value::Type::array;
      value.elements = values.data();
      value.size = values.size();
      break;
    }
    case Document::value_t::string:
      return Value::ofText(document.get_ref<const std::string &>());
    case Document::value_t::boolean:
      value.type = Value::Type::boolean;
      break;
    case Document::value_t::number_integer:
      value.type = Value::Type::integer;
      value.integer = document.get<std::int64_t>();
      break;
    case Document::value_t::number_unsigned:
      value.type = Value::Type::natural;
      value.natural = document.get<std::uint64_t>();
      break;
    case Document::value_t::number_float:
      value.type = Value::Type::fraction;
      value.fraction = document.get<double>();
      break;
    default:
      value.type = Value::Type::null;
  }
  return value;
}

std::string printable(const Value &value) {
  switch (value.type) {
    case Value::Type::text:
      return printable(Document(std::string(value.text)));
    case Value::Type::fraction:
      return printable(Document(value.fraction));
    case Value::Type::integer:
      return printable(Document(value.integer));
    case Value::Type::natural:
      return printable(Document(value.natural));
    default:
      return printable(Document());
  }
}

}  // namespace kx::collector
