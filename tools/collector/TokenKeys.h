#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace kx::collector {

/// The secrets of signed tokens, which all collectors side by side have to share.
struct TokenKeys {
  /// Signs, and checks: bytes.
  std::string current;
  /// Checks only: the one before, whose tokens have not expired yet, or the next one, which others may sign
  /// with already.
  std::optional<std::string> other;
};

/// The keys in that file: one a line in hexadecimal digits, of 32 bytes at least, the current one first;
/// empty lines, and lines that begin with '#', do not count. Throws std::runtime_error when the file cannot
/// be read, when others may read or change it, or when it holds anything else. What it says has no part of a
/// key in it.
TokenKeys tokenKeysIn(const std::filesystem::path &file);

}  // namespace kx::collector
