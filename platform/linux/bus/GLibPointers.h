#pragma once

#include <gio/gio.h>

#include <memory>

namespace kx {

/// Gives back what GLib has handed out.
struct GLibRelease {
  void operator()(GError *error) const { g_error_free(error); }
  void operator()(GVariant *value) const { g_variant_unref(value); }
  void operator()(gchar *text) const { g_free(text); }
  template <class T>
  void operator()(T *object) const {
    g_object_unref(object);
  }
};

/// Owns one reference to a GObject, a GVariant (not a floating one), a GError or a text of GLib.
template <class T>
using GLibPointer = std::unique_ptr<T, GLibRelease>;

/// One more reference to `object`; empty for null.
template <class T>
GLibPointer<T> retained(T *object) {
  if (object != nullptr) g_object_ref(object);
  return GLibPointer<T>(object);
}

}  // namespace kx
