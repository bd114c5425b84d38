/* A GTK application whose windows tell the lifecycle by themselves. Each shows the message as it is now.
 *
 * usage: kx-gtk-host API-TOKEN HOSTNAME ADVERTISING-IDENTIFIER [CA-FILE] */
#include <KXPublisher/gobject/kx-publisher.h>
#include <gtk/gtk.h>
#include <json-glib/json-glib.h>

#include "lifecycle.h"

static KxPublisher *publisher;

/* ---- A window */

static GtkWidget *label(const char *text, const char *style) {
  GtkWidget *made = gtk_label_new(text);
  gtk_label_set_xalign(GTK_LABEL(made), 0);
  gtk_label_set_ellipsize(GTK_LABEL(made), PANGO_ELLIPSIZE_END);
  gtk_label_set_selectable(GTK_LABEL(made), TRUE);
  gtk_widget_set_can_focus(made, FALSE);
  gtk_widget_add_css_class(made, style);
  return made;
}

static void add_fact(JsonObject *message, const char *key, JsonNode *value, gpointer grid) {
  (void)message;
  g_autofree char *json = json_to_string(value, FALSE);
  const char *text = JSON_NODE_HOLDS_VALUE(value) ? json_node_get_string(value) : NULL;
  gtk_grid_attach_next_to(grid, label(key, "dim-label"), NULL, GTK_POS_BOTTOM, 1, 1);
  gtk_grid_attach_next_to(grid, label(text != NULL ? text : json, "monospace"),
                          gtk_widget_get_last_child(grid), GTK_POS_RIGHT, 1, 1);
}

static void show_message(GtkScrolledWindow *content) {
  GtkWidget *grid = gtk_grid_new();
  gtk_grid_set_column_spacing(GTK_GRID(grid), 18);
  gtk_grid_set_row_spacing(GTK_GRID(grid), 6);
  gtk_widget_set_margin_start(grid, 18);
  gtk_widget_set_margin_top(grid, 12);
  gtk_widget_set_margin_bottom(grid, 12);

  g_autofree char *message = kx_publisher_dup_message(publisher);
  g_autoptr(JsonNode) facts = message == NULL ? NULL : json_from_string(message, NULL);
  if (facts != NULL) json_object_foreach_member(json_node_get_object(facts), add_fact, grid);
  gtk_scrolled_window_set_child(content, grid);
}

static void new_window(GtkApplication *application) {
  GtkWidget *content = gtk_scrolled_window_new();
  show_message(GTK_SCROLLED_WINDOW(content));

  GtkWidget *refresh = gtk_button_new_from_icon_name("view-refresh-symbolic");
  gtk_widget_set_tooltip_text(refresh, "Make a new message");
  g_signal_connect_swapped(refresh, "clicked", G_CALLBACK(show_message), content);
  GtkWidget *bar = gtk_header_bar_new();
  gtk_header_bar_pack_start(GTK_HEADER_BAR(bar), refresh);

  GtkWidget *window = gtk_application_window_new(application);
  gtk_window_set_title(GTK_WINDOW(window), "KXPublisher");
  gtk_window_set_default_size(GTK_WINDOW(window), 480, 420);
  gtk_window_set_titlebar(GTK_WINDOW(window), bar);
  gtk_window_set_child(GTK_WINDOW(window), content);
  /* Closing it leaves the application at work; starting the application again brings it back. */
  gtk_window_set_hide_on_close(GTK_WINDOW(window), TRUE);
  gtk_window_present(GTK_WINDOW(window));
}

/* ---- The application */

static void startup(GtkApplication *application, char **arguments) {
  g_autoptr(KxOptions) options = kx_options_new();
  kx_options_set_advertising_identifier(options, arguments[3]);
  kx_options_set_certificate_authority_file(options, arguments[4]);
  if (!kx_publisher_set_options(options)) g_warning("The options come too late");
  publisher = kx_publisher_get_default(arguments[1], arguments[2]);
  follow_windows(application);
}

static void activate(GtkApplication *application) {
  GList *windows = gtk_application_get_windows(application);
  if (windows == NULL)
    new_window(application);
  else
    gtk_window_present(windows->data);
}

static void new_window_activated(GSimpleAction *action, GVariant *parameter, gpointer application) {
  (void)action, (void)parameter;
  new_window(application);
}

static void quit_activated(GSimpleAction *action, GVariant *parameter, gpointer application) {
  (void)action, (void)parameter;
  g_application_quit(application);
}

int main(int argc, char **argv) {
  static const GActionEntry actions[] = {{.name = "new-window", .activate = new_window_activated},
                                         {.name = "quit", .activate = quit_activated}};
  if (argc < 4) {
    g_printerr("usage: %s API-TOKEN HOSTNAME ADVERTISING-IDENTIFIER [CA-FILE]\n", argv[0]);
    return 2;
  }
  g_autoptr(GtkApplication) application =
      gtk_application_new("com.example.GtkHost", G_APPLICATION_DEFAULT_FLAGS);
  g_action_map_add_action_entries(G_ACTION_MAP(application), actions, G_N_ELEMENTS(actions), application);
  gtk_application_set_accels_for_action(application, "app.new-window", (const char *[]){"<Control>n", NULL});
  gtk_application_set_accels_for_action(application, "app.quit", (const char *[]){"<Control>q", NULL});
  gtk_application_set_accels_for_action(application, "window.close", (const char *[]){"<Control>w", NULL});
  g_signal_connect(application, "startup", G_CALLBACK(startup), argv);
  g_signal_connect(application, "activate", G_CALLBACK(activate), NULL);
  return g_application_run(G_APPLICATION(application), 0, NULL);
}
