#pragma once

#include <string>
#include <string_view>

namespace kx::collector {

/// Something that a browser can fetch.
struct Download {
  std::string contentType;
  std::string body;
};

/// The certificate authority's certificate in the forms in which devices take it. All of it is public.
///
/// May be used from any thread once it is made.
class CertificateDownload {
 public:
  static constexpr const char *pagePath = "/ca";
  static constexpr const char *pemPath = "/ca.pem";
  static constexpr const char *profilePath = "/ca.mobileconfig";

  /// Throws std::runtime_error when the PEM text cannot be read.
  explicit CertificateDownload(const std::string &authorityPem);

  /// What stands at that path, a query cut off: the page that has links to the other two and says what to do
  /// with them, the certificate as it is, or a configuration profile for iOS. Null for any other path.
  const Download *find(std::string_view target) const;

  /// The certificate's SHA-256 fingerprint, "0A:1B:...", to compare with what a device shows.
  const std::string &fingerprint() const { return fingerprint_; }

 private:
  std::string fingerprint_;
  Download page_;
  Download pem_;
  Download profile_;
};

}  // namespace kx::collector
