#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>

#include "tests/support/ChildProcess.h"
#include "tools/collector/CertificateAuthority.h"
#include "tools/collector/CertificateDownload.h"

namespace kx::collector {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

class CertificateDownloadTest : public ::testing::Test {
 protected:
  const CertificateAuthority authority{"Test authority"};
  const CertificateDownload download{authority.certificate().certificate};
  const TemporaryDirectory temporary;

  /// What a program in Python says of the profile, which it has as `profile`, and of the certificate, which
  /// it has as `certificate` (DER).
  std::string ask(const std::string &expression) const {
    const std::string profile = temporary.path() + "/profile";
    const std::string pem = temporary.path() + "/pem";
    std::ofstream(profile) << download.find("/ca.mobileconfig")->body;
    std::ofstream(pem) << authority.certificate().certificate;
    ChildProcess python({"/usr/bin/python3", "-c",
                         "import hashlib, plistlib, ssl, sys\n"
                         "profile = plistlib.load(open(sys.argv[1], 'rb'))\n"
                         "certificate = ssl.PEM_cert_to_DER_cert(open(sys.argv[2]).read())\n"
                         "print(" +
                             expression + ")",
                         profile, pem});
    EXPECT_EQ(python.exitCode(), 0) << python.errors();
    const std::string output = python.output();
    return output.substr(0, output.find('\n'));
  }
};

TEST_F(CertificateDownloadTest, GivesTheCertificateAsItIs) {
  const Download *pem = download.find("/ca.pem");
  ASSERT_NE(pem, nullptr);
  EXPECT_EQ(pem->contentType, "application/x-x509-ca-cert");
  EXPECT_EQ(pem->body, authority.certificate().certificate);
  EXPECT_EQ(download.find("/ca.pem?again"), pem);
}

TEST_F(CertificateDownloadTest, GivesAProfileThatHasIt) {
  const Download *profile = download.find("/ca.mobileconfig");
  ASSERT_NE(profile, nullptr);
  EXPECT_EQ(profile->contentType, "application/x-apple-aspen-config");
  EXPECT_EQ(ask("profile['PayloadType'], profile['PayloadVersion'], len(profile['PayloadContent'])"),
            "Configuration 1 1");
  EXPECT_EQ(ask("profile['PayloadContent'][0]['PayloadType']"), "com.apple.security.root");
  EXPECT_EQ(ask("profile['PayloadContent'][0]['PayloadContent'] == certificate"), "True");
  EXPECT_EQ(ask("profile['PayloadUUID'] != profile['PayloadContent'][0]['PayloadUUID']"), "True");
}

// A device that gets it twice has one profile.
TEST_F(CertificateDownloadTest, TheSameCertificateMakesTheSameProfile) {
  EXPECT_EQ(CertificateDownload(authority.certificate().certificate).find("/ca.mobileconfig")->body,
            download.find("/ca.mobileconfig")->body);
  EXPECT_THAT(ask("profile['PayloadUUID']"),
              MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-8[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
  const CertificateDownload other(CertificateAuthority("Another authority").certificate().certificate);
  EXPECT_THAT(other.find("/ca.mobileconfig")->body, Not(HasSubstr(ask("profile['PayloadUUID']"))));
}

TEST_F(CertificateDownloadTest, TellsTheFingerprintToCompare) {
  EXPECT_EQ(download.fingerprint(),
            ask("':'.join('%02X' % byte for byte in hashlib.sha256(certificate).digest())"));
  EXPECT_THAT(download.find("/ca")->body, HasSubstr(download.fingerprint()));
}

TEST_F(CertificateDownloadTest, ThePageHasLinksToBoth) {
  const Download *page = download.find("/ca");
  ASSERT_NE(page, nullptr);
  EXPECT_EQ(page->contentType, "text/html; charset=utf-8");
  EXPECT_THAT(page->body, HasSubstr("href=\"/ca.pem\""));
  EXPECT_THAT(page->body, HasSubstr("href=\"/ca.mobileconfig\""));
}

TEST_F(CertificateDownloadTest, GivesNothingElse) {
  for (const char *target : {"/", "", "/ca.key", "/ca-key.pem", "/ca/", "/CA", "?/ca", "/ca.pem/.."}) {
    EXPECT_EQ(download.find(target), nullptr) << target;
  }
  for (const char *target : {"/ca", "/ca.pem", "/ca.mobileconfig"}) {
    EXPECT_THAT(download.find(target)->body, Not(HasSubstr("PRIVATE"))) << target;
  }
}

TEST_F(CertificateDownloadTest, WhatIsNoCertificateIsAnError) {
  EXPECT_THROW(CertificateDownload("text"), std::runtime_error);
}

}  // namespace
}  // namespace kx::collector
