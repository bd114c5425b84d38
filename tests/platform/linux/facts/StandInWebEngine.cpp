#include <glib-object.h>

#include <cstring>

#include "KXPublisher/platform/foundation/Export.h"

// Stands in for a WebKitGTK library, and for the GDK below it, in all that a process asks of them here.

namespace {

bool hasDisplay = false;
const char *userAgent = "Mozilla/5.0 (X11; Linux x86_64) StandIn/1.0";
int settingsAlive = 0;

}  // namespace

extern "C" {

KX_EXPORT gpointer gdk_display_get_default() {
  return hasDisplay ? &hasDisplay : nullptr;
}

KX_EXPORT gpointer webkit_settings_new() {
  GObject *const settings = static_cast<GObject *>(g_object_new(G_TYPE_OBJECT, nullptr));
  g_object_weak_ref(
      settings, [](gpointer, GObject *) { --settingsAlive; }, nullptr);
  ++settingsAlive;
  return settings;
}

KX_EXPORT const gchar *webkit_settings_get_user_agent(gpointer /*settings*/) {
  return userAgent;
}

// ---- For the test

KX_EXPORT void standInSetDisplay(int present) {
  hasDisplay = present != 0;
}
KX_EXPORT void standInSetUserAgent(const char *text) {
  userAgent = text;
}
KX_EXPORT int standInSettingsAlive() {
  return settingsAlive;
}
}
