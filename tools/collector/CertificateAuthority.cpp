#include "tools/collector/CertificateAuthority.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstddef>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <utility>

namespace kx::collector {

namespace {

/// What OpenSSL's objects are freed by.
struct OpenSSLDeleter {
  void operator()(BIO *object) const { BIO_free_all(object); }
  void operator()(BIGNUM *object) const { BN_free(object); }
  void operator()(EVP_PKEY *object) const { EVP_PKEY_free(object); }
  void operator()(X509 *object) const { X509_free(object); }
  void operator()(X509_EXTENSION *object) const { X509_EXTENSION_free(object); }
  void operator()(GENERAL_NAMES *object) const { GENERAL_NAMES_free(object); }
  void operator()(GENERAL_NAME *object) const { GENERAL_NAME_free(object); }
  void operator()(ASN1_OCTET_STRING *object) const { ASN1_OCTET_STRING_free(object); }
};

template <typename Type>
using OpenSSLPointer = std::unique_ptr<Type, OpenSSLDeleter>;

/// Throws what is the matter with `task` ("sign a certificate") by the latest error in this thread's queue,
/// and empties the queue.
[[noreturn]] void throwOpenSSLError(const std::string &task) {
  const char *reason = ERR_reason_error_string(ERR_peek_last_error());
  ERR_clear_error();
  throw std::runtime_error("Cannot " + task + ": " + (reason == nullptr ? "unknown reason" : reason));
}

/// Takes over what OpenSSL has made; a null pointer is its failure to do so.
template <typename Type>
OpenSSLPointer<Type> made(Type *object, const std::string &task) {
  if (object == nullptr) throwOpenSSLError(task);
  return OpenSSLPointer<Type>(object);
}

/// OpenSSL's other way to fail: a result that is not positive.
void require(int result, const std::string &task) {
  if (result <= 0) throwOpenSSLError(task);
}

using std::chrono::hours;
using std::chrono::system_clock;

// Clocks of other machines may be a little behind.
constexpr hours clockTolerance{1};
constexpr int serialNumberBits = 159;  // positive, and 20 octets at the most

OpenSSLPointer<EVP_PKEY> newKey() {
  return made(EVP_EC_gen("P-256"), "make a private key");
}

OpenSSLPointer<BIO> bioReading(const std::string &text) {
  return made(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), "read a PEM text");
}

OpenSSLPointer<X509> certificateFrom(const std::string &pem) {
  return made(PEM_read_bio_X509(bioReading(pem).get(), nullptr, nullptr, nullptr), "read the certificate");
}

OpenSSLPointer<EVP_PKEY> privateKeyFrom(const std::string &pem) {
  // An encrypted key is refused; by itself OpenSSL would ask on the terminal.
  const auto noPassphrase = [](char *, int, int, void *) { return -1; };
  return made(PEM_read_bio_PrivateKey(bioReading(pem).get(), nullptr, noPassphrase, nullptr),
              "read the private key");
}

std::string textOf(BIO *bio) {
  char *data = nullptr;
  const long size = BIO_get_mem_data(bio, &data);
  return std::string(data, static_cast<std::size_t>(size));
}

PemCertificate pemOf(X509 *certificate, EVP_PKEY *key) {
  const auto certificateText = made(BIO_new(BIO_s_mem()), "write a certificate");
  require(PEM_write_bio_X509(certificateText.get(), certificate), "write a certificate");
  const auto keyText = made(BIO_new(BIO_s_secmem()), "write a private key");
  require(PEM_write_bio_PrivateKey(keyText.get(), key, nullptr, nullptr, 0, nullptr, nullptr),
          "write a private key");
  return {textOf(certificateText.get()), textOf(keyText.get())};
}

void setRandomSerialNumber(X509 *certificate) {
  const auto number = made(BN_new(), "make a serial number");
  require(BN_rand(number.get(), serialNumberBits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY),
          "make a serial number");
  if (BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) == nullptr) {
    throwOpenSSLError("set the serial number");
  }
}

void setValidity(X509 *certificate, system_clock::time_point notBefore, system_clock::time_point notAfter) {
  if (ASN1_TIME_set(X509_getm_notBefore(certificate), system_clock::to_time_t(notBefore)) == nullptr ||
      ASN1_TIME_set(X509_getm_notAfter(certificate), system_clock::to_time_t(notAfter)) == nullptr) {
    throwOpenSSLError("set the validity");
  }
}

/// A version 3 certificate of that key that everything but the issuer and the extensions has been written to.
OpenSSLPointer<X509> unsignedCertificate(EVP_PKEY *key, const std::string &commonName,
                                         system_clock::time_point notBefore,
                                         system_clock::time_point notAfter) {
  auto certificate = made(X509_new(), "make a certificate");
  require(X509_set_version(certificate.get(), X509_VERSION_3), "set the version");
  setRandomSerialNumber(certificate.get());
  setValidity(certificate.get(), notBefore, notAfter);
  require(X509_NAME_add_entry_by_NID(X509_get_subject_name(certificate.get()), NID_commonName, MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char *>(commonName.data()),
                                     static_cast<int>(commonName.size()), -1, 0),
          "set the common name \"" + commonName + "\"");
  require(X509_set_pubkey(certificate.get(), key), "set the public key");
  return certificate;
}

void addExtension(X509 *certificate, X509 *issuer, int identifier, const char *value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const auto extension =
      made(X509V3_EXT_conf_nid(nullptr, &context, identifier, value), "make a certificate's extension");
  require(X509_add_ext(certificate, extension.get(), -1), "add a certificate's extension");
}

OpenSSLPointer<GENERAL_NAME> alternativeName(const std::string &nameOrAddress) {
  auto name = made(GENERAL_NAME_new(), "make an alternative name");
  OpenSSLPointer<ASN1_OCTET_STRING> address(a2i_IPADDRESS(nameOrAddress.c_str()));
  if (address != nullptr) {
    GENERAL_NAME_set0_value(name.get(), GEN_IPADD, address.release());
    return name;
  }
  ERR_clear_error();
  OpenSSLPointer<ASN1_OCTET_STRING> text(ASN1_IA5STRING_new());
  if (text == nullptr) throwOpenSSLError("make an alternative name");
  require(ASN1_STRING_set(text.get(), nameOrAddress.data(), static_cast<int>(nameOrAddress.size())),
          "make an alternative name");
  GENERAL_NAME_set0_value(name.get(), GEN_DNS, text.release());
  return name;
}

void addAlternativeNames(X509 *certificate, const std::vector<std::string> &namesOrAddresses) {
  const auto names = made(sk_GENERAL_NAME_new_null(), "make alternative names");
  for (const std::string &nameOrAddress : namesOrAddresses) {
    auto name = alternativeName(nameOrAddress);
    require(sk_GENERAL_NAME_push(names.get(), name.get()), "add an alternative name");
    static_cast<void>(name.release());
  }
  require(X509_add1_ext_i2d(certificate, NID_subject_alt_name, names.get(), 0, X509V3_ADD_DEFAULT),
          "add the alternative names");
}

void sign(X509 *certificate, EVP_PKEY *key) {
  require(X509_sign(certificate, key, EVP_sha256()), "sign a certificate");
}

}  // namespace

CertificateAuthority::CertificateAuthority(const std::string &commonName, std::chrono::seconds lifetime) {
  const auto now = system_clock::now();
  const auto key = newKey();
  const auto certificate = unsignedCertificate(key.get(), commonName, now - clockTolerance, now + lifetime);
  X509 *const self = certificate.get();
  require(X509_set_issuer_name(self, X509_get_subject_name(self)), "set the issuer");
  addExtension(self, self, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
  addExtension(self, self, NID_key_usage, "critical,keyCertSign,cRLSign");
  addExtension(self, self, NID_subject_key_identifier, "hash");
  sign(self, key.get());
  own_ = pemOf(self, key.get());
}

CertificateAuthority::CertificateAuthority(PemCertificate existing) : own_(std::move(existing)) {
  const auto certificate = certificateFrom(own_.certificate);
  const auto key = privateKeyFrom(own_.privateKey);
  require(X509_check_private_key(certificate.get(), key.get()), "use this private key");
  if (X509_check_ca(certificate.get()) != 1) {
    throw std::runtime_error("Cannot use this certificate: it is not one of a certificate authority");
  }
}

system_clock::time_point CertificateAuthority::expiry() const {
  std::tm utc{};
  require(ASN1_TIME_to_tm(X509_get0_notAfter(certificateFrom(own_.certificate).get()), &utc),
          "read when the certificate expires");
  return system_clock::from_time_t(timegm(&utc));
}

PemCertificate CertificateAuthority::issue(const std::vector<std::string> &namesOrAddresses,
                                           system_clock::time_point notBefore,
                                           system_clock::time_point notAfter) const {
  if (namesOrAddresses.empty()) {
    throw std::runtime_error("Cannot issue a certificate: it needs at least one name or address");
  }
  const auto authority = certificateFrom(own_.certificate);
  const auto authorityKey = privateKeyFrom(own_.privateKey);
  const auto key = newKey();
  const auto certificate = unsignedCertificate(key.get(), namesOrAddresses.front(), notBefore, notAfter);
  X509 *const server = certificate.get();
  require(X509_set_issuer_name(server, X509_get_subject_name(authority.get())), "set the issuer");
  addExtension(server, authority.get(), NID_basic_constraints, "critical,CA:FALSE");
  addExtension(server, authority.get(), NID_key_usage, "critical,digitalSignature");
  addExtension(server, authority.get(), NID_ext_key_usage, "serverAuth");
  addExtension(server, authority.get(), NID_subject_key_identifier, "hash");
  addExtension(server, authority.get(), NID_authority_key_identifier, "keyid:always");
  addAlternativeNames(server, namesOrAddresses);
  sign(server, authorityKey.get());
  return pemOf(server, key.get());
}

std::vector<unsigned char> certificateBytes(const std::string &certificatePem) {
  const auto certificate = certificateFrom(certificatePem);
  std::vector<unsigned char> bytes(static_cast<std::size_t>(i2d_X509(certificate.get(), nullptr)));
  unsigned char *end = bytes.data();
  require(i2d_X509(certificate.get(), &end), "write a certificate");
  return bytes;
}

}  // namespace kx::collector
