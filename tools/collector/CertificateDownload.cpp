#include "tools/collector/CertificateDownload.h"

#include <openssl/evp.h>

#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include "tools/collector/CertificateAuthority.h"

namespace kx::collector {

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t digestSize = 32;
constexpr std::size_t base64LineSize = 64;

Bytes digestOf(const Bytes &bytes) {
  Bytes digest(digestSize);
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("Cannot make a certificate's fingerprint");
  }
  return digest;
}

std::string hexadecimal(unsigned char byte) {
  char text[4];
  std::snprintf(text, sizeof text, "%02X", byte);
  return text;
}

std::string fingerprintOf(const Bytes &certificate) {
  std::string text;
  for (const unsigned char byte : digestOf(certificate))
    text += (text.empty() ? "" : ":") + hexadecimal(byte);
  return text;
}

/// An identifier in a UUID's form (version 8, for what is made from a digest of one's own) that is the same
/// whenever certificate and purpose are.
std::string identifierFor(const Bytes &certificate, char purpose) {
  Bytes named = certificate;
  named.push_back(static_cast<unsigned char>(purpose));
  Bytes digest = digestOf(named);
  digest[6] = static_cast<unsigned char>((digest[6] & 0x0FU) | 0x80U);
  digest[8] = static_cast<unsigned char>((digest[8] & 0x3FU) | 0x80U);
  std::string text;
  for (std::size_t at = 0; at < 16; ++at) {
    if (at == 4 || at == 6 || at == 8 || at == 10) text += '-';
    text += hexadecimal(digest[at]);
  }
  return text;
}

std::string base64(const Bytes &bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(text.data()), bytes.data(),
                                   static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(size));
  for (std::size_t at = base64LineSize; at < text.size(); at += base64LineSize + 1) text.insert(at, "\n");
  return text;
}

std::string profileOf(const Bytes &certificate) {
  // Names of a profile's keys and types are Apple's: "Configuration Profile Reference".
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
)" + base64(certificate) +
         R"(
      </data>
      <key>PayloadDescription</key>
      <string>Lets this device trust a kx-collector, for development.</string>
      <key>PayloadDisplayName</key>
      <string>kx-collector development CA</string>
      <key>PayloadIdentifier</key>
      <string>kx-collector.ca.certificate</string>
      <key>PayloadType</key>
      <string>com.apple.security.root</string>
      <key>PayloadUUID</key>
      <string>)" +
         identifierFor(certificate, 'c') + R"(</string>
      <key>PayloadVersion</key>
      <integer>1</integer>
    </dict>
  </array>
  <key>PayloadDescription</key>
  <string>Lets this device trust a kx-collector, for development. Remove it when you are done.</string>
  <key>PayloadDisplayName</key>
  <string>kx-collector development CA</string>
  <key>PayloadIdentifier</key>
  <string>kx-collector.ca</string>
  <key>PayloadRemovalDisallowed</key>
  <false/>
  <key>PayloadType</key>
  <string>Configuration</string>
  <key>PayloadUUID</key>
  <string>)" +
         identifierFor(certificate, 'p') + R"(</string>
  <key>PayloadVersion</key>
  <integer>1</integer>
</dict>
</plist>
)";
}

std::string pageOf(const std::string &fingerprint) {
  return R"(<!DOCTYPE html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>The certificate of kx-collector</title>
<h1>The certificate of kx-collector</h1>
<p>This device can send messages to this collection service once it trusts the service's certificate authority. It is for
development: whoever has its key, on the developer's machine, can pose as any server to this device. Remove it when you are
done.</p>
<h2>iPhone, iPad</h2>
<ol>
<li><a href="/ca.mobileconfig">Get the profile</a>, and allow it.</li>
<li>Install it: <em>Settings › General › VPN &amp; Device Management</em>.</li>
<li>Switch it on: <em>Settings › General › About › Certificate Trust Settings</em>.</li>
</ol>
<h2>Other devices</h2>
<p><a href="/ca.pem">Get the certificate</a>, and tell the system, or the host application, to trust it.</p>
<h2>Is it the right one?</h2>
<p>Its SHA-256 fingerprint, which kx-collector has printed at its start, is</p>
<p><code>)" +
         fingerprint +
         R"(</code></p>
</html>
)";
}

}  // namespace

CertificateDownload::CertificateDownload(const std::string &authorityPem) {
  const Bytes certificate = certificateBytes(authorityPem);
  fingerprint_ = fingerprintOf(certificate);
  page_ = {"text/html; charset=utf-8", pageOf(fingerprint_)};
  pem_ = {"application/x-x509-ca-cert", authorityPem};
  profile_ = {"application/x-apple-aspen-config", profileOf(certificate)};
}

const Download *CertificateDownload::find(std::string_view target) const {
  const std::string_view path = target.substr(0, target.find('?'));
  if (path == pagePath) return &page_;
  if (path == pemPath) return &pem_;
  if (path == profilePath) return &profile_;
  return nullptr;
}

}  // namespace kx::collector
