#pragma once

#include <optional>

#include "KXPublisher/platform/foundation/Data.h"
#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// Compresses request bodies. Stateless; may be used from any thread.
class KX_EXPORT KXGzipUtility {
 public:
  /// `gzipData:`: the input as one gzip member. Absent, with one line in the log, when the input is absent or
  /// empty, or zlib fails; that includes every input that does not fit into 1.01 times its length plus 12
  /// bytes, which is where short and incompressible inputs end.
  static std::optional<Data> gzipData(const std::optional<Data> &data);
};

}  // namespace kx
