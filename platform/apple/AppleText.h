#pragma once

#import <Foundation/Foundation.h>

#include <optional>
#include <string>

namespace kx {

/// `text` as an object; nil when it is not valid UTF-8.
NSString *_Nullable stringOf(const std::string &text);

/// `text` for a person to read: each byte as a character of its own when it is not valid UTF-8.
NSString *_Nonnull readableStringOf(const std::string &text);

/// `string` as it is, in UTF-8. Absent when there is none, or when it holds half of a surrogate pair, which
/// UTF-8 cannot.
std::optional<std::string> textOf(NSString *_Nullable string);

}  // namespace kx
