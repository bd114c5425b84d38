#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace kx::collector {

/// A certificate and its private key, both as PEM text. The key is not encrypted.
struct PemCertificate {
  std::string certificate;
  std::string privateKey;
};

/// A certificate authority for development: what it issues is trusted by whoever is told to trust it, and by
/// nobody else. All keys are on the curve P-256, all serial numbers random.
///
/// May be used from any thread. Everything that fails throws std::runtime_error with OpenSSL's reason.
class CertificateAuthority {
 public:
  static constexpr std::chrono::hours defaultLifetime{24 * 3652};  // ten years

  /// A new authority of that name, valid from now on.
  explicit CertificateAuthority(const std::string &commonName,
                                std::chrono::seconds lifetime = defaultLifetime);

  /// The authority that was made earlier. Throws when either PEM text cannot be read, when they do not belong
  /// together, or when the certificate is not one of an authority.
  explicit CertificateAuthority(PemCertificate existing);

  /// Its own certificate, which clients have to trust, and its private key.
  const PemCertificate &certificate() const { return own_; }

  /// The last second in which its certificate is valid.
  std::chrono::system_clock::time_point expiry() const;

  /// A server's certificate, with a new key, for the given host names, IPv4 and IPv6 addresses. The first of
  /// them is its common name too, which is 64 characters long at the most. Both times are inclusive, cut to
  /// whole seconds, and may lie in the past or the future.
  PemCertificate issue(const std::vector<std::string> &namesOrAddresses,
                       std::chrono::system_clock::time_point notBefore,
                       std::chrono::system_clock::time_point notAfter) const;

 private:
  PemCertificate own_;
};

/// The certificate in a PEM text as it is signed, in DER. Throws std::runtime_error when there is none.
std::vector<unsigned char> certificateBytes(const std::string &certificatePem);

}  // namespace kx::collector
