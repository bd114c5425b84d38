#pragma once

#include <string>
#include <vector>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// The user's language settings (NSLocale). May be asked from any thread.
class KX_EXPORT Locale {
 public:
  virtual ~Locale() = default;

  /// `preferredLanguages`: the user's languages as BCP 47 identifiers ("de-CH"), the most wanted one first.
  /// Empty when the device knows none.
  virtual std::vector<std::string> preferredLanguages() = 0;
};

}  // namespace kx
