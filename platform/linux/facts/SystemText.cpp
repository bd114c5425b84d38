#include "platform/linux/facts/SystemText.h"

#include <glib.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

namespace kx {

namespace {

constexpr std::size_t largestFile = std::size_t{256} * 1024;  // bytes

}  // namespace

std::optional<std::string> readSmallFile(const std::string &path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;  // opening a pipe might wait
  const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "re"), &std::fclose);
  if (file == nullptr) return std::nullopt;
  std::string contents;
  std::array<char, 4096> block{};
  while (const std::size_t size = std::fread(block.data(), 1, block.size(), file.get())) {
    contents.append(block.data(), size);
    if (contents.size() > largestFile) return std::nullopt;
  }
  if (std::ferror(file.get()) != 0) return std::nullopt;
  return contents;
}

std::optional<std::string> trimmedText(const std::string &text) {
  constexpr const char *whiteSpace = " \t\r\n\v\f";
  const std::string terminated = text.substr(0, text.find('\0'));
  const std::size_t first = terminated.find_first_not_of(whiteSpace);
  if (first == std::string::npos) return std::nullopt;
  return validText(terminated.substr(first, terminated.find_last_not_of(whiteSpace) + 1 - first));
}

std::optional<std::string> validText(std::string text) {
  if (text.empty() || g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) == FALSE) {
    return std::nullopt;
  }
  return text;
}

}  // namespace kx
