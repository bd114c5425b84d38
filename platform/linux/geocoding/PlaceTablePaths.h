#pragma once

#include <string>
#include <vector>

namespace kx {

/// Where the table of places may be, the likeliest path first: below "share" beside the directory of the
/// library itself, as in the build tree and wherever the library is installed or carried to; then below the
/// directory for which the build was configured; at last, if the library is built as a part of its host's
/// build, in that build. A statically linked library is in the host's executable.
///
/// Waits for the dynamic loader when that is busy on another thread: not to be called on the host's.
std::vector<std::string> placeTablePaths();

}  // namespace kx
