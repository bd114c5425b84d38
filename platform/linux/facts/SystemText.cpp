#include "platform/linux/facts/SystemText.h"

#include <glib.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdio>
#include <memory>
#include <utility>

namespace kx {

namespace {

constexpr std::size_t largestFile = std::size_t{256} * 1024;  // bytes
constexpr std::size_t blockSize = 4096;                       // bytes, of the heap: most files are not there

}  // namespace

std::optional<std::string> readSmallFile(const std::string &path) {
  struct stat status {};
  // Opening a pipe might wait.
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "re"), &std::fclose);
  if (file == nullptr) return std::nullopt;
  std::string contents;
  std::size_t size = 0;
  do {
    size = contents.size();
    if (size > largestFile) return std::nullopt;
    contents.resize(size + blockSize);
    contents.resize(size + std::fread(contents.data() + size, 1, blockSize, file.get()));
  } while (contents.size() != size);
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
