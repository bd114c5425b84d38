#pragma once

/* Which versions of iOS have what is declared. Only the platform "ios" is known here; a compiler for another
 * platform takes everything for available. */

#ifdef __APPLE__
#define KX_AVAILABLE_ios(from) __attribute__((availability(ios, introduced = from)))
#define KX_DEPRECATED_ios(from, to) __attribute__((availability(ios, introduced = from, deprecated = to)))
#else
#define KX_AVAILABLE_ios(from)
#define KX_DEPRECATED_ios(from, to)
#endif

#ifndef API_AVAILABLE
#define API_TO_BE_DEPRECATED 100000
#define API_AVAILABLE(platform) KX_AVAILABLE_##platform
#define API_DEPRECATED(message, platform) KX_DEPRECATED_##platform
#endif
