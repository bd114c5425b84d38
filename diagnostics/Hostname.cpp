#include "diagnostics/Hostname.h"

namespace kx {

namespace {

constexpr std::string_view digits = "0123456789";
constexpr std::string_view lettersDigitsAndMarks =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";

bool isAllOf(std::string_view text, std::string_view characters) {
  return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

bool isPort(std::string_view text) {
  constexpr std::size_t mostDigits = 5;
  constexpr unsigned greatest = 65535;
  if (!isAllOf(text, digits) || text.size() > mostDigits) return false;
  unsigned port = 0;
  for (const char digit : text) port = port * 10 + static_cast<unsigned>(digit - '0');
  return port > 0 && port <= greatest;
}

/// Labels between dots, maybe with a dot at the end.
bool isName(std::string_view text) {
  constexpr std::size_t longestLabel = 63;
  constexpr std::size_t longestName = 253;
  if (!text.empty() && text.back() == '.') text.remove_suffix(1);
  if (text.size() > longestName) return false;
  for (;;) {
    const std::string_view label = text.substr(0, text.find('.'));
    if (!isAllOf(label, lettersDigitsAndMarks) || label.size() > longestLabel) return false;
    if (label.front() == '-' || label.back() == '-') return false;
    if (label.size() == text.size()) return true;
    text.remove_prefix(label.size() + 1);
  }
}

/// In brackets. Which groups may stand where is for the network to say.
bool isIPv6Address(std::string_view text) {
  if (text.size() < 4 || text.front() != '[' || text.back() != ']') return false;
  text = text.substr(1, text.size() - 2);
  return text.find(':') != std::string_view::npos && isAllOf(text, "0123456789abcdefABCDEF:.");
}

}  // namespace

bool isHostnameWithOrWithoutPort(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  // A colon inside of brackets is the address's own.
  if (colon != std::string_view::npos && text.find(']', colon) == std::string_view::npos) {
    if (!isPort(text.substr(colon + 1))) return false;
    text = text.substr(0, colon);
  }
  return isName(text) || isIPv6Address(text);
}

}  // namespace kx
