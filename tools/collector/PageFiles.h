#pragma once

#include <string>
#include <string_view>

namespace kx::collector {

/// By the ending of a file's name.
const char *mediaTypeOf(std::string_view name);

/// The page with that token in its element `<meta name="page-token" content="">`.
std::string withToken(std::string_view page, const std::string &token);

}  // namespace kx::collector
