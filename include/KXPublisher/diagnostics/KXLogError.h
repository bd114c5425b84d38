#pragma once

#include <initializer_list>
#include <string_view>

#include "KXPublisher/platform/foundation/Export.h"
#include "KXPublisher/platform/foundation/StringFormat.h"

namespace kx {

/// `KXLogError`: the one way in which the library reports a failure. Fills the format (printf-style
/// placeholders and "%@"), whether or not the line will be printed, and logs it at level 1 (Error) on the
/// shared log. May be called from any thread.
///
///     KXLogError("Error sending data. HTTP status: %lu", {status});
KX_EXPORT void KXLogError(std::string_view format, std::initializer_list<FormatArgument> arguments = {});

}  // namespace kx
