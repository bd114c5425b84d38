#include "KXPublisher/platform/foundation/StringFormat.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace kx {

namespace {

constexpr const char *integerConversions = "diouxX";
constexpr const char *numberConversions = "aAeEfFgG";

bool isOneOf(const char *set, char character) {
  return character != '\0' && std::strchr(set, character) != nullptr;
}

/// The length of the placeholder at the start of `text`, which begins with '%'; 0 when it is cut short.
std::size_t placeholderLength(std::string_view text) {
  std::size_t end = 1;
  while (end < text.size() && isOneOf("-+ #0123456789.'hlqjzt", text[end])) ++end;
  return end < text.size() ? end + 1 : 0;
}

/// Prints one number with the flags, width and precision of `specification`, whatever length it names.
template <class Number>
void appendNumber(std::string_view specification, const char *length, Number number, std::string &to) {
  std::string format;
  for (const char character : specification.substr(0, specification.size() - 1)) {
    if (!isOneOf("hlqjzt", character)) format += character;
  }
  format += length;
  format += specification.back();
  char text[512];  // a double at full width has 309 digits before its point
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int written = std::snprintf(text, sizeof text, format.c_str(), number);
#pragma GCC diagnostic pop
  if (written > 0) to.append(text, std::min(static_cast<std::size_t>(written), sizeof text - 1));
}

template <class Integer>
void appendInteger(std::string_view specification, Integer integer, std::string &to) {
  if (isOneOf(integerConversions, specification.back())) {
    appendNumber(specification, "ll", static_cast<unsigned long long>(integer), to);
  } else {
    to += std::to_string(integer);
  }
}

}  // namespace

void FormatArgument::append(std::string_view specification, std::string &to) const {
  if (const auto *const text = std::get_if<std::string_view>(&argument_)) {
    to += *text;
  } else if (const auto *const signedInteger = std::get_if<std::int64_t>(&argument_)) {
    appendInteger(specification, *signedInteger, to);
  } else if (const auto *const unsignedInteger = std::get_if<std::uint64_t>(&argument_)) {
    appendInteger(specification, *unsignedInteger, to);
  } else if (const auto *const number = std::get_if<double>(&argument_)) {
    appendNumber(isOneOf(numberConversions, specification.back()) ? specification : "%g", "", *number, to);
  } else if (const auto *const value = std::get_if<const Value *>(&argument_)) {
    to += (*value)->description();
  } else if (const auto *const dictionary = std::get_if<const Dictionary *>(&argument_)) {
    to += (*dictionary)->description();
  } else if (const auto *const object = std::get_if<const Object *>(&argument_)) {
    to += *object == nullptr ? "(null)" : (*object)->description();
  }
}

std::string stringWithFormat(std::string_view format, std::initializer_list<FormatArgument> arguments) {
  std::string text;
  const FormatArgument *next = arguments.begin();
  while (!format.empty()) {
    const std::size_t percent = format.find('%');
    text += format.substr(0, percent);
    if (percent == std::string_view::npos) break;
    format.remove_prefix(percent);
    const std::size_t length = placeholderLength(format);
    const std::string_view placeholder = format.substr(0, length == 0 ? format.size() : length);
    format.remove_prefix(placeholder.size());
    if (placeholder == "%%") {
      text += '%';
    } else if (length == 0 || next == arguments.end()) {
      text += placeholder;
    } else {
      (next++)->append(placeholder, text);
    }
  }
  return text;
}

}  // namespace kx
