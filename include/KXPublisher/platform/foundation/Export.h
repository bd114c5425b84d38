#pragma once

/// Marks what a host may link against. Everything else is compiled with hidden visibility.
#define KX_EXPORT __attribute__((visibility("default")))
