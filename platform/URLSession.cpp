#include "KXPublisher/platform/URLSession.h"

#include <algorithm>

namespace kx {

namespace {

/// ASCII only, whatever the process's locale.
char lowered(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool sameName(const std::string &left, const std::string &right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return lowered(a) == lowered(b); });
}

}  // namespace

bool HTTPHeaderNameLess::operator()(const std::string &left, const std::string &right) const {
  return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                      [](char a, char b) { return lowered(a) < lowered(b); });
}

void URLRequest::setValue(const std::string &value, const std::string &forHTTPHeaderField) {
  allHTTPHeaderFields.erase(std::remove_if(allHTTPHeaderFields.begin(), allHTTPHeaderFields.end(),
                                           [&forHTTPHeaderField](const auto &field) {
                                             return sameName(field.first, forHTTPHeaderField);
                                           }),
                            allHTTPHeaderFields.end());
  allHTTPHeaderFields.emplace_back(forHTTPHeaderField, value);
}

void URLRequest::addValue(const std::string &value, const std::string &forHTTPHeaderField) {
  for (auto &field : allHTTPHeaderFields) {
    if (sameName(field.first, forHTTPHeaderField)) {
      field.second += "," + value;
      return;
    }
  }
  allHTTPHeaderFields.emplace_back(forHTTPHeaderField, value);
}

}  // namespace kx
