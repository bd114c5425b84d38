#pragma once

namespace kx::portal {

// Where the portals are, on the session's bus: the services that any sandbox lets its application call.

inline constexpr const char *serviceName = "org.freedesktop.portal.Desktop";
inline constexpr const char *path = "/org/freedesktop/portal/desktop";

}  // namespace kx::portal
