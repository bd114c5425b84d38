#include "tools/collector/TokenKeys.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "tools/collector/CertificateStore.h"
#include "tools/collector/Encoding.h"

namespace kx::collector {

namespace {

constexpr std::size_t minimumKeySize = 32;  // bytes; as many as HMAC-SHA256 gives
constexpr std::size_t maximumKeySize = 1024;
constexpr std::size_t maximumKeys = 2;

}  // namespace

TokenKeys tokenKeysIn(const std::filesystem::path &file) {
  refuseToShare(file);
  const auto refuse = [&file](const std::string &problem) {
    throw std::runtime_error(file.string() + " " + problem);
  };
  std::istringstream lines(contentOf(file));
  std::vector<std::string> keys;
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line.front() == '#') continue;
    const std::string key = fromHexadecimal(line).value_or("");
    const std::string where = "in line " + std::to_string(number);
    if (key.empty()) refuse("has something else than hexadecimal digits of whole bytes " + where);
    if (key.size() < minimumKeySize) refuse("has a key of less than 32 bytes " + where);
    if (key.size() > maximumKeySize) refuse("has a key of more than 1024 bytes " + where);
    if (std::find(keys.begin(), keys.end(), key) != keys.end()) refuse("has the same key again " + where);
    keys.push_back(key);
  }
  if (keys.empty()) refuse("has no key");
  if (keys.size() > maximumKeys) refuse("has more than two keys");
  TokenKeys found;
  found.current = keys.front();
  if (keys.size() == maximumKeys) found.other = keys.back();
  return found;
}

}  // namespace kx::collector
