#pragma once

#include <optional>
#include <string>

namespace kx {

/// The contents of a small text file of the system's. Absent when there is no such regular file, it cannot be
/// read, or it is larger than 256 KiB, which no file is that is meant.
std::optional<std::string> readSmallFile(const std::string &path);

/// `text` up to its first NUL, without the white space around it, as the kernel and firmware hand out texts.
/// Absent when nothing is left, or what is left is not valid UTF-8.
std::optional<std::string> trimmedText(const std::string &text);

/// `text` as it is; absent when it is empty, holds a NUL or is not valid UTF-8.
std::optional<std::string> validText(std::string text);

}  // namespace kx
