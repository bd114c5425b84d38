#pragma once

#if defined(__cplusplus) && __cplusplus < 201703L
#error "KXPublisher needs C++17: compile with -std=c++17 or newer (in CMake, CMAKE_CXX_STANDARD 17)"
#endif

/// Marks what the library exports. Only what is declared below KXPublisher/, and so installed, carries it;
/// all else is compiled with hidden visibility, and on Linux the names of this library are all that is
/// exported.
#define KX_EXPORT __attribute__((visibility("default")))

/// Marks what is private in an exported class: no host can name it, and the library calls it, or takes it in,
/// without a look-up. Not what a header's own inline code calls.
#define KX_HIDDEN __attribute__((visibility("hidden")))
