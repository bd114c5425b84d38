#pragma once

#include <gtk/gtk.h>

/* Tells KXPublisher when the application enters the background, and when it is about to return: it is in the
 * foreground as long as one of its windows can be seen. A window that is hidden, minimised or, where the
 * system tells that, not shown at the time cannot. To be called once, before the first window is made. */
void follow_windows(GtkApplication *application);
