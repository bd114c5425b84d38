#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "KXPublisher/platform/foundation/Value.h"

namespace kx {

/// Sets `key` to a text that is known. One that is not, or is empty, makes no key: a provider never writes an
/// empty value.
inline void setFact(Dictionary &facts, std::string_view key, std::optional<std::string> text) {
  if (text && !text->empty()) facts.set(key, *std::move(text));
}

}  // namespace kx
