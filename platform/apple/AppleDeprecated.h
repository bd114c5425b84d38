#pragma once

/// Between these two, the compiler is silent about what a later iOS has deprecated, for hosts that take such
/// warnings for errors. Only for uses that are right all the same: a comment says why.
#define KX_DEPRECATED_BEGIN \
  _Pragma("clang diagnostic push") _Pragma("clang diagnostic ignored \"-Wdeprecated-declarations\"")
#define KX_DEPRECATED_END _Pragma("clang diagnostic pop")
