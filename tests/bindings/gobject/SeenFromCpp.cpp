// What no other language sees of the library, for PublisherTest.c.
#include <KXPublisher/diagnostics/KXLog.h>
#include <KXPublisher/platform/Application.h>
#include <KXPublisher/platform/Platform.h>

extern "C" {
long log_level_as_cpp_sees_it();
long background_refresh_status_as_cpp_sees_it();
}

long log_level_as_cpp_sees_it() {
  return static_cast<long>(kx::KXLog::sharedInstance()->logLevel());
}

long background_refresh_status_as_cpp_sees_it() {
  return static_cast<long>(kx::Platform::current().sharedApplication()->backgroundRefreshStatus());
}
