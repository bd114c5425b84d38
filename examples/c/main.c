/* The whole of what a host application in C writes.
 *
 * usage: main API-TOKEN HOSTNAME ADVERTISING-IDENTIFIER [CA-FILE] */
#include <KXPublisher/gobject/kx-publisher.h>
#include <gio/gio.h>

int main(int argc, char **argv) {
  if (argc < 4) {
    g_printerr("usage: %s API-TOKEN HOSTNAME ADVERTISING-IDENTIFIER [CA-FILE]\n", argv[0]);
    return 2;
  }
  g_autoptr(GApplication) application = g_application_new("com.example.CHost", G_APPLICATION_DEFAULT_FLAGS);

  g_autoptr(KxOptions) options = kx_options_new();
  kx_options_set_advertising_identifier(options, argv[3]);
  kx_options_set_certificate_authority_file(options, argv[4]);
  if (!kx_publisher_set_options(options)) g_warning("The options come too late");
  kx_publisher_get_default(argv[1], argv[2]);

  g_signal_connect(application, "activate", G_CALLBACK(g_application_hold), NULL);
  return g_application_run(application, 0, NULL);
}
