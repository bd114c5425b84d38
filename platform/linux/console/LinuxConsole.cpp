#include "platform/linux/console/LinuxConsole.h"

namespace kx {

void LinuxConsole::log(const std::string &line) {
  g_log_structured(domain, level, "MESSAGE", "%s", line.c_str());
}

}  // namespace kx
