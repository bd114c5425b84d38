#include "tools/collector/NextSteps.h"

namespace kx::collector {

std::vector<std::string> nextSteps(const ListeningAddress &where) {
  const std::string host = where.url().substr(std::string("https://").size());
  return {"options.certificateAuthorityFile = \"" + where.trustedFile +
              "\";  // with the others of LinuxHostOptions",
          "kx::LinuxHost::setOptions(options);",
          "kx::KXPublisher::sharedInstanceWithApiToken(\"demo\", \"" + host + "\");"};
}

}  // namespace kx::collector
