// What no other language sees of the library, for PublisherTest.c.
#include <KXPublisher/diagnostics/KXLog.h>

extern "C" long log_level_as_cpp_sees_it();

long log_level_as_cpp_sees_it() {
  return static_cast<long>(kx::KXLog::sharedInstance()->logLevel());
}
