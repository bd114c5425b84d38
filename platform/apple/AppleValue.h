#pragma once

#import <Foundation/Foundation.h>

#include <memory>
#include <optional>

#include "KXPublisher/platform/foundation/MutableDictionary.h"
#include "KXPublisher/platform/foundation/Value.h"

namespace kx {

/// The values of messages as the system's own objects, and back. A text that is not valid in the other form
/// is left out of its array or map, and so is an object that JSON has no word for.

NSDictionary<NSString *, id> *_Nonnull factsOf(const Dictionary &dictionary);
Dictionary dictionaryOf(NSDictionary *_Nullable facts);

/// Absent for an object that JSON has no word for.
std::optional<Value> valueOf(id _Nullable object);

/// The contents as they are now; nil for a null pointer.
NSDictionary<NSString *, id> *_Nullable factsOf(const std::shared_ptr<MutableDictionary> &dictionary);

}  // namespace kx
