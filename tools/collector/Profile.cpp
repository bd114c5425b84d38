#include "tools/collector/Profile.h"

#include <openssl/sha.h>

#include <array>

#include "tools/collector/Encoding.h"

namespace kx::collector {

namespace {

/// The base64 text between the two lines that frame it: the certificate in DER.
std::string derOf(const std::string &pem) {
  const auto begin = pem.find('\n') + 1;
  return pem.substr(begin, pem.find("-----END") - begin);
}

/// Always the same for the same text, so that a profile replaces its own older one.
std::string uuidFor(const std::string &text) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest;
  SHA256(reinterpret_cast<const unsigned char *>(text.data()), text.size(), digest.data());
  const std::string digits =
      hexadecimal({reinterpret_cast<const char *>(digest.data()), digest.size()}).substr(0, 32);
  return digits.substr(0, 8) + "-" + digits.substr(8, 4) + "-" + digits.substr(12, 4) + "-" +
         digits.substr(16, 4) + "-" + digits.substr(20, 12);
}

}  // namespace

std::string profileOf(const std::string &authorityPem) {
  const std::string der = derOf(authorityPem);
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <key>PayloadContent</key>
  <array>
    <dict>
      <key>PayloadCertificateFileName</key>
      <string>ca.cer</string>
      <key>PayloadContent</key>
      <data>
)" + der +
         R"(      </data>
      <key>PayloadDisplayName</key>
      <string>kx-collector's certificate authority</string>
      <key>PayloadIdentifier</key>
      <string>kx-collector.ca.certificate</string>
      <key>PayloadType</key>
      <string>com.apple.security.root</string>
      <key>PayloadUUID</key>
      <string>)" +
         uuidFor("certificate" + der) + R"(</string>
      <key>PayloadVersion</key>
      <integer>1</integer>
    </dict>
  </array>
  <key>PayloadDescription</key>
  <string>Lets this device trust the collection service on a developer's machine. Remove it after the tests.</string>
  <key>PayloadDisplayName</key>
  <string>kx-collector</string>
  <key>PayloadIdentifier</key>
  <string>kx-collector.ca</string>
  <key>PayloadType</key>
  <string>Configuration</string>
  <key>PayloadUUID</key>
  <string>)" +
         uuidFor(der) + R"(</string>
  <key>PayloadVersion</key>
  <integer>1</integer>
</dict>
</plist>
)";
}

}  // namespace kx::collector
