// The whole of what a host application writes.
#include <KXPublisher/platform/linux/LinuxHost.h>
#include <gio/gio.h>

#include <KXPublisher/KXPublisher.hpp>
#include <optional>
#include <string>

/// This installation's identifier for advertising: made at random once and kept in a file; the user gets
/// another by removing that. Absent where it cannot be kept.
std::optional<std::string> advertisingIdentifier() {
  g_autofree char *folder = g_build_filename(g_get_user_data_dir(), "com.example.Host", nullptr);
  g_autofree char *file = g_build_filename(folder, "advertising-identifier", nullptr);
  g_autofree char *kept = nullptr;
  if (g_file_get_contents(file, &kept, nullptr, nullptr) && g_uuid_string_is_valid(kept)) return kept;

  g_autofree char *made = g_uuid_string_random();
  g_mkdir_with_parents(folder, 0700);
  if (!g_file_set_contents(file, made, -1, nullptr)) return std::nullopt;
  return made;
}

int main() {
  g_application_set_default(g_application_new("com.example.Host", G_APPLICATION_DEFAULT_FLAGS));
  kx::LinuxHostOptions options;
  options.advertisingIdentifier = advertisingIdentifier();
  if (!kx::LinuxHost::setOptions(options)) return 1;  // it comes before anything else of the library
  kx::KXPublisher::sharedInstanceWithApiToken("the API token", "collect.example.com");

  g_main_loop_run(g_main_loop_new(nullptr, FALSE));  // the application's own life
}
