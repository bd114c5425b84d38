#pragma once

#include <optional>
#include <string>

#include "KXPublisher/platform/foundation/Export.h"
#include "KXPublisher/platform/foundation/Value.h"

namespace kx {

/// Turns values into JSON text: the system's own serialiser does on Apple's systems, RapidJSON elsewhere.
/// Called from any thread.
class KX_EXPORT JSONSerialization {
 public:
  /// `dataWithJSONObject:options:error:` with options 0: compact JSON, members in the serialiser's order, a
  /// slash written as a plain slash. Nothing when the top level is neither an array nor a map, a text (or
  /// key) is not valid UTF-8, or a number is not finite.
  static std::optional<std::string> dataWithJSONObject(const Value &object);

  /// The same text for a person to read, whatever the value: any top level, invalid text as far as it can be
  /// shown, numbers that are not finite by name. On Apple's systems what is no JSON is shown as they describe
  /// their objects.
  static std::string descriptionOf(const Value &value);
};

}  // namespace kx
