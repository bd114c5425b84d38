#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace kx::collector {

/// A new random password that can be typed: 20 letters and digits without those that look alike.
std::string newPassword();

/// The password in that file: its first line. Throws std::runtime_error when the file cannot be read, when
/// others may read it, or when the line is empty.
std::string passwordIn(const std::filesystem::path &file);

/// Whether the value of an "Authorization" field (HTTP Basic; any user) has that password. Takes as long for
/// a wrong password as for the right one, wherever they differ.
bool isAuthorized(std::string_view authorization, std::string_view password);

}  // namespace kx::collector
