#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <memory>
#include <stdexcept>

#include "tools/collector/CertificateAuthority.h"

namespace kx::collector {
namespace {

using std::chrono::hours;
using std::chrono::system_clock;
using ::testing::HasSubstr;

struct Free {
  void operator()(BIO *object) const { BIO_free_all(object); }
  void operator()(X509 *object) const { X509_free(object); }
  void operator()(X509_STORE *object) const { X509_STORE_free(object); }
  void operator()(X509_STORE_CTX *object) const { X509_STORE_CTX_free(object); }
  void operator()(EVP_PKEY *object) const { EVP_PKEY_free(object); }
};
template <typename Type>
using Pointer = std::unique_ptr<Type, Free>;

Pointer<X509> parsed(const std::string &pem) {
  const Pointer<BIO> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  return Pointer<X509>(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
}

Pointer<EVP_PKEY> parsedKey(const std::string &pem) {
  const Pointer<BIO> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  return Pointer<EVP_PKEY>(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
}

/// OpenSSL's verdict on a server's certificate, by all rules of RFC 5280; "ok" when there is nothing wrong.
std::string verdict(const std::string &certificate, const std::string &authority) {
  const auto server = parsed(certificate);
  const auto trusted = parsed(authority);
  const Pointer<X509_STORE> store(X509_STORE_new());
  X509_STORE_add_cert(store.get(), trusted.get());
  const Pointer<X509_STORE_CTX> context(X509_STORE_CTX_new());
  X509_STORE_CTX_init(context.get(), store.get(), server.get(), nullptr);
  X509_STORE_CTX_set_flags(context.get(), X509_V_FLAG_X509_STRICT);
  X509_STORE_CTX_set_purpose(context.get(), X509_PURPOSE_SSL_SERVER);
  X509_verify_cert(context.get());
  return X509_verify_cert_error_string(X509_STORE_CTX_get_error(context.get()));
}

std::time_t secondsOf(const ASN1_TIME *time) {
  std::tm utc{};
  ASN1_TIME_to_tm(time, &utc);
  return timegm(&utc);
}

std::string failureOf(const std::function<void()> &task) {
  try {
    task();
    return "";
  } catch (const std::runtime_error &error) {
    return error.what();
  }
}

class CertificateAuthorityTest : public ::testing::Test {
 protected:
  const CertificateAuthority authority{"Test authority"};
  const system_clock::time_point now = system_clock::now();

  PemCertificate issue(const std::vector<std::string> &names = {"localhost"}) const {
    return authority.issue(names, now - hours(1), now + hours(1));
  }
};

TEST_F(CertificateAuthorityTest, IssuesCertificatesThatItsOwnVerifies) {
  EXPECT_EQ(verdict(issue().certificate, authority.certificate().certificate), "ok");
}

TEST_F(CertificateAuthorityTest, IsTrustedForItsOwnCertificatesOnly) {
  const CertificateAuthority other("Test authority");
  EXPECT_NE(verdict(issue().certificate, other.certificate().certificate), "ok");
}

TEST_F(CertificateAuthorityTest, IsAnAuthorityThatIssuesNoFurtherAuthorities) {
  const auto own = parsed(authority.certificate().certificate);
  ASSERT_NE(own, nullptr);
  EXPECT_EQ(X509_check_ca(own.get()), 1);
  EXPECT_EQ(X509_get_pathlen(own.get()), 0);
  EXPECT_EQ(X509_get_key_usage(own.get()), static_cast<std::uint32_t>(KU_KEY_CERT_SIGN | KU_CRL_SIGN));
  EXPECT_EQ(X509_check_issued(own.get(), own.get()), X509_V_OK);
}

TEST_F(CertificateAuthorityTest, IsValidForTenYears) {
  const auto own = parsed(authority.certificate().certificate);
  EXPECT_LE(secondsOf(X509_get0_notBefore(own.get())), system_clock::to_time_t(now));
  EXPECT_GE(secondsOf(X509_get0_notAfter(own.get())), system_clock::to_time_t(now + hours(24 * 3650)));
}

TEST_F(CertificateAuthorityTest, IssuesCertificatesForServersAndNothingElse) {
  const auto server = parsed(issue().certificate);
  ASSERT_NE(server, nullptr);
  EXPECT_EQ(X509_check_ca(server.get()), 0);
  EXPECT_EQ(X509_get_key_usage(server.get()), static_cast<std::uint32_t>(KU_DIGITAL_SIGNATURE));
  EXPECT_EQ(X509_get_extended_key_usage(server.get()), static_cast<std::uint32_t>(XKU_SSL_SERVER));
}

TEST_F(CertificateAuthorityTest, IssuesForEveryNameAndAddressAndForNoOther) {
  const auto server = parsed(issue({"localhost", "collect.example.com", "127.0.0.1", "::1"}).certificate);
  const auto isFor = [&server](const char *name) {
    return X509_check_host(server.get(), name, 0, 0, nullptr) == 1;
  };
  const auto isAt = [&server](const char *address) {
    return X509_check_ip_asc(server.get(), address, 0) == 1;
  };
  EXPECT_TRUE(isFor("localhost"));
  EXPECT_TRUE(isFor("collect.example.com"));
  EXPECT_FALSE(isFor("example.com"));
  EXPECT_FALSE(isFor("127.0.0.1"));
  EXPECT_TRUE(isAt("127.0.0.1"));
  EXPECT_TRUE(isAt("::1"));
  EXPECT_FALSE(isAt("127.0.0.2"));
}

TEST_F(CertificateAuthorityTest, IssuesForTheTimeThatIsAskedFor) {
  const auto server = parsed(authority.issue({"localhost"}, now - hours(48), now - hours(24)).certificate);
  EXPECT_EQ(secondsOf(X509_get0_notBefore(server.get())), system_clock::to_time_t(now - hours(48)));
  EXPECT_EQ(secondsOf(X509_get0_notAfter(server.get())), system_clock::to_time_t(now - hours(24)));
}

TEST_F(CertificateAuthorityTest, WhatHasExpiredOrIsNotYetValidDoesNotVerify) {
  const std::string &own = authority.certificate().certificate;
  EXPECT_EQ(verdict(authority.issue({"localhost"}, now - hours(48), now - hours(24)).certificate, own),
            "certificate has expired");
  EXPECT_EQ(verdict(authority.issue({"localhost"}, now + hours(24), now + hours(48)).certificate, own),
            "certificate is not yet valid");
}

TEST_F(CertificateAuthorityTest, MakesAKeyOfItsOwnForEachCertificate) {
  const PemCertificate first = issue();
  const PemCertificate second = issue();
  EXPECT_NE(first.privateKey, second.privateKey);
  for (const PemCertificate &pair : {first, second, authority.certificate()}) {
    const auto certificate = parsed(pair.certificate);
    const auto key = parsedKey(pair.privateKey);
    EXPECT_EQ(X509_check_private_key(certificate.get(), key.get()), 1);
    char group[32] = "";
    EVP_PKEY_get_group_name(key.get(), group, sizeof group, nullptr);
    EXPECT_STREQ(group, "prime256v1");
  }
}

TEST_F(CertificateAuthorityTest, GivesEachCertificateALongSerialNumberOfItsOwn) {
  const auto first = parsed(issue().certificate);
  const auto second = parsed(issue().certificate);
  EXPECT_NE(ASN1_INTEGER_cmp(X509_get0_serialNumber(first.get()), X509_get0_serialNumber(second.get())), 0);
  EXPECT_GT(ASN1_STRING_length(X509_get0_serialNumber(first.get())), 15);
  EXPECT_LE(ASN1_STRING_length(X509_get0_serialNumber(first.get())), 20);
}

TEST_F(CertificateAuthorityTest, GoesOnFromWhatItWasBefore) {
  const CertificateAuthority again(authority.certificate());
  const auto issued = again.issue({"localhost"}, now - hours(1), now + hours(1));
  EXPECT_EQ(verdict(issued.certificate, authority.certificate().certificate), "ok");
}

TEST_F(CertificateAuthorityTest, RefusesWhatIsNoAuthority) {
  EXPECT_EQ(failureOf([this] { CertificateAuthority{issue()}; }),
            "Cannot use this certificate: it is not one of a certificate authority");
}

TEST_F(CertificateAuthorityTest, RefusesAKeyThatDoesNotBelongToTheCertificate) {
  const PemCertificate mixed{authority.certificate().certificate, issue().privateKey};
  EXPECT_EQ(failureOf([&mixed] { CertificateAuthority{mixed}; }),
            "Cannot use this private key: key values mismatch");
}

TEST_F(CertificateAuthorityTest, RefusesWhatIsNotPEM) {
  const PemCertificate own = authority.certificate();
  EXPECT_THAT(failureOf([&own] {
                CertificateAuthority(PemCertificate{"", own.privateKey});
              }),
              HasSubstr("Cannot read the certificate: "));
  EXPECT_THAT(failureOf([&own] {
                CertificateAuthority(PemCertificate{own.certificate, "text"});
              }),
              HasSubstr("Cannot read the private key: "));
}

TEST_F(CertificateAuthorityTest, RefusesAnEncryptedKeyWithoutAskingForThePassphrase) {
  const auto key = parsedKey(authority.certificate().privateKey);
  const Pointer<BIO> bio(BIO_new(BIO_s_mem()));
  PEM_write_bio_PrivateKey(bio.get(), key.get(), EVP_aes_128_cbc(),
                           reinterpret_cast<const unsigned char *>("secret"), 6, nullptr, nullptr);
  char *data = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &data);
  const PemCertificate encrypted{authority.certificate().certificate,
                                 std::string(data, static_cast<std::size_t>(size))};
  EXPECT_THAT(failureOf([&encrypted] { CertificateAuthority{encrypted}; }),
              HasSubstr("Cannot read the private key: "));
}

TEST_F(CertificateAuthorityTest, NeedsNamesThatACertificateCanHold) {
  EXPECT_EQ(failureOf([this] { issue({}); }),
            "Cannot issue a certificate: it needs at least one name or address");
  EXPECT_THAT(failureOf([this] { issue({std::string(65, 'x')}); }), HasSubstr("string too long"));
  EXPECT_THAT(failureOf([] { CertificateAuthority(std::string(65, 'x')); }), HasSubstr("string too long"));
}

}  // namespace
}  // namespace kx::collector
