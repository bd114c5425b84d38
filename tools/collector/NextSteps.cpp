#include "tools/collector/NextSteps.h"

#include "tools/collector/CertificateDownload.h"
#include "tools/collector/Document.h"

namespace kx::collector {

namespace {

constexpr const char *indentation = "    ";

}  // namespace

std::vector<std::string> hostLines(const ListeningAddress &where) {
  std::vector<std::string> lines;
  if (where.isAuthority) {
    lines.push_back("options.certificateAuthorityFile = " + quote(where.trustedFile) + ";");
    lines.emplace_back("kx::LinuxHost::setOptions(options);");
  }
  lines.push_back("kx::KXPublisher::sharedInstanceWithApiToken(\"any text\", " + quote(where.hostAndPort()) +
                  ");");
  return lines;
}

std::string nextStepsText(const ListeningAddress &where) {
  std::string text;
  for (const std::string &other : where.otherAddresses) {
    ListeningAddress same = where;
    same.address = other;
    text += (text.empty() ? "also on " : ", ") + same.url();
  }
  if (!text.empty()) text += "\n";
  text += "\nHave a host report here (Linux, C++):\n";
  for (const std::string &line : hostLines(where)) text += indentation + line + "\n";
  return text + "\n";
}

std::string downloadURL(const ListeningAddress &where) {
  return where.url() + CertificateDownload::pagePath;
}

std::string downloadSteps(const ListeningAddress &where, const std::string &fingerprint,
                          const std::string &qrCode) {
  return "Have a phone trust it: open " + downloadURL(where) +
         "\nand go on past the warning, which is about just that. The certificate's SHA-256 fingerprint "
         "is\n" +
         indentation + fingerprint + "\n\n" + qrCode + (qrCode.empty() ? "" : "\n");
}

}  // namespace kx::collector
