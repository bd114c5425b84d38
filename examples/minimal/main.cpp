// The whole of what a host application writes.
#include <KXPublisher/platform/linux/LinuxHost.h>
#include <gio/gio.h>

#include <KXPublisher/KXPublisher.hpp>

int main() {
  g_application_set_default(g_application_new("com.example.Host", G_APPLICATION_DEFAULT_FLAGS));
  kx::LinuxHostOptions options;
  options.advertisingIdentifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  kx::LinuxHost::setOptions(options);
  kx::KXPublisher::sharedInstanceWithApiToken("the API token", "collect.example.com");

  g_main_loop_run(g_main_loop_new(nullptr, FALSE));  // the application's own life
}
