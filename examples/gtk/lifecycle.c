#include "lifecycle.h"

#include <KXPublisher/gobject/kx-publisher.h>

static gboolean can_be_seen(GtkWidget *window) {
  GdkToplevelState unseen = GDK_TOPLEVEL_STATE_MINIMIZED;
#if GTK_CHECK_VERSION(4, 12, 0)
  unseen |= GDK_TOPLEVEL_STATE_SUSPENDED;
#endif
  if (!gtk_widget_get_mapped(window)) return FALSE;
  GdkSurface *surface = gtk_native_get_surface(GTK_NATIVE(window));
  return (gdk_toplevel_get_state(GDK_TOPLEVEL(surface)) & unseen) == 0;
}

/* The library ignores what it knows already. */
static gboolean tell(gpointer application) {
  GList *window = gtk_application_get_windows(application);
  while (window != NULL && !can_be_seen(window->data)) window = window->next;
  if (window == NULL)
    kx_publisher_did_enter_background();
  else
    kx_publisher_will_enter_foreground();
  return G_SOURCE_REMOVE;
}

/* Not at once: one window may close to make way for another. */
static void something_changed(GtkApplication *application) {
  g_idle_add_full(G_PRIORITY_DEFAULT_IDLE, tell, g_object_ref(application), g_object_unref);
}

static void realized(GtkWidget *window, GtkApplication *application) {
  GdkSurface *surface = gtk_native_get_surface(GTK_NATIVE(window));
  g_signal_connect_object(surface, "notify::state", G_CALLBACK(something_changed), application,
                          G_CONNECT_SWAPPED);
}

static void window_added(GtkApplication *application, GtkWindow *window) {
  g_signal_connect_object(window, "realize", G_CALLBACK(realized), application, 0);
  g_signal_connect_object(window, "map", G_CALLBACK(something_changed), application, G_CONNECT_SWAPPED);
  g_signal_connect_object(window, "unmap", G_CALLBACK(something_changed), application, G_CONNECT_SWAPPED);
}

void follow_windows(GtkApplication *application) {
  g_signal_connect(application, "window-added", G_CALLBACK(window_added), NULL);
}
