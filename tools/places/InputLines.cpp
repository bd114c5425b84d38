#include "tools/places/InputLines.h"

#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>

#include <algorithm>

namespace kx::places {

namespace {

bool isUTF8(const std::string &text) {
  struct Nowhere {
    void Put(char) {}
  } nowhere;
  rapidjson::MemoryStream stream(text.data(), text.size());
  while (stream.Tell() < text.size()) {
    if (!rapidjson::UTF8<>::Validate(stream, nowhere)) return false;
  }
  return true;
}

bool isControlCharacter(char character) {
  const auto code = static_cast<unsigned char>(character);
  return (code < 0x20 && character != '\t') || code == 0x7f;
}

bool isAsciiLetter(char character) {
  return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
}

}  // namespace

bool InputLines::next() {
  do {
    ++number_;
    if (!std::getline(input_, line_)) {
      if (!input_.eof()) fail("cannot be read");
      return false;
    }
  } while (line_.empty() || line_.front() == '#');
  if (!isUTF8(line_)) fail("the line is not UTF-8");
  if (std::any_of(line_.begin(), line_.end(), isControlCharacter)) fail("there is a control character");
  return true;
}

std::vector<std::string> InputLines::fields(std::size_t count) const {
  std::vector<std::string> fields(1);
  for (const char character : line_) {
    if (character == '\t') {
      fields.emplace_back();
    } else {
      fields.back() += character;
    }
  }
  if (fields.size() != count) {
    fail("there are " + std::to_string(fields.size()) + " fields, not " + std::to_string(count));
  }
  return fields;
}

void InputLines::fail(const std::string &reason) const {
  throw MalformedInput(name_ + ":" + std::to_string(number_) + ": " + reason);
}

bool isCountryCode(const std::string &text) {
  return text.size() == 2 && text[0] >= 'A' && text[0] <= 'Z' && text[1] >= 'A' && text[1] <= 'Z';
}

bool isTimeZone(const std::string &text) {
  const auto isAllowed = [](char character) {
    return isAsciiLetter(character) || std::string("0123456789_+-/").find(character) != std::string::npos;
  };
  return !text.empty() && isAsciiLetter(text.front()) && text.back() != '/' &&
         text.find("//") == std::string::npos && std::all_of(text.begin(), text.end(), isAllowed);
}

}  // namespace kx::places
