#pragma once

#include <gio/gio.h>

namespace kx {

/// Those properties of an interface that are of interest. GLib's thread reads them: a constant with a name,
/// which lives as long as the process.
struct BusProperties {
  const char *interface;
  const char *names[6];  ///< the first null pointer ends them

  /// Whether a signal `PropertiesChanged` with these parameters, whatever they are, tells of any of them.
  bool areNamedIn(GVariant *parameters) const;
};

}  // namespace kx
