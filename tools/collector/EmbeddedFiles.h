#pragma once

#include <string_view>
#include <vector>

namespace kx::collector {

/// A file that was compiled into the program.
struct EmbeddedFile {
  std::string_view name;  ///< without a folder
  std::string_view content;
};

/// The page's files, and the description of its interface: all of tools/collector/page/, and
/// openapi.json.
const std::vector<EmbeddedFile> &embeddedFiles();

}  // namespace kx::collector
