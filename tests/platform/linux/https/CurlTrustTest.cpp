#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "tests/platform/linux/https/HTTPSTest.h"

namespace kx {
namespace {

namespace fs = std::filesystem;
using std::chrono::hours;
using ::testing::HasSubstr;

constexpr long handshakeFailed = 35;
constexpr long notTrusted = 60;
constexpr long badAuthorityFile = 77;

/// Which servers are believed.
class CurlTrustTest : public HTTPSTest {
 protected:
  Outcome postTo(const collector::PemCertificate &certificate, const TestServer::Options &options = {}) {
    TestServer other(certificate, options);
    const auto outcome = post(other.url());
    EXPECT_EQ(other.requests().size(), outcome.response == nullptr ? 0u : 1u);
    return outcome;
  }

  /// A directory with the certificate under the hash of its name, and nothing else.
  std::string hashedDirectory(const std::string &certificate) {
    const std::unique_ptr<BIO, int (*)(BIO *)> text(
        BIO_new_mem_buf(certificate.data(), static_cast<int>(certificate.size())), &BIO_free);
    const std::unique_ptr<X509, void (*)(X509 *)> parsed(
        PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr), &X509_free);
    std::array<char, 16> name{};
    std::snprintf(name.data(), name.size(), "%08lx.0", X509_subject_name_hash(parsed.get()));
    const std::string path = directory.path() + "/hashed";
    fs::create_directory(path);
    std::ofstream(path + "/" + name.data()) << certificate;
    return path;
  }

  std::string emptyDirectory() {
    const std::string path = directory.path() + "/unhashed";
    fs::create_directory(path);
    std::ofstream(path + "/ca-certificates.crt") << authority.certificate().certificate;
    return path;
  }
};

TEST_F(CurlTrustTest, RefusesCertificatesOfOtherNames) {
  const auto outcome = postTo(certificateFor({"example.test", "127.0.0.2"}));
  EXPECT_EQ(outcome.errorCode(), notTrusted);
  EXPECT_THAT(outcome.errorText(), HasSubstr("localhost"));
  EXPECT_EQ(post(server.url("/", "127.0.0.1")).status(), 200);
}

TEST_F(CurlTrustTest, RefusesUnknownAuthorities) {
  const collector::CertificateAuthority unknown("Test authority");
  const auto now = std::chrono::system_clock::now();
  const auto outcome = postTo(unknown.issue({"localhost"}, now - hours(1), now + hours(1)));
  EXPECT_EQ(outcome.errorCode(), notTrusted);
}

TEST_F(CurlTrustTest, RefusesTheTestAuthorityWhenNobodyHasNamedIt) {
  settings.certificateAuthorityFile = std::nullopt;
  EXPECT_EQ(post(server.url()).errorCode(), notTrusted);
}

TEST_F(CurlTrustTest, RefusesCertificatesOutsideTheirTime) {
  const auto now = std::chrono::system_clock::now();
  const auto expired = postTo(authority.issue({"localhost"}, now - hours(48), now - hours(24)));
  EXPECT_EQ(expired.errorCode(), notTrusted);
  EXPECT_THAT(expired.errorText(), HasSubstr("expired"));
  const auto early = postTo(authority.issue({"localhost"}, now + hours(24), now + hours(48)));
  EXPECT_EQ(early.errorCode(), notTrusted);
  EXPECT_THAT(early.errorText(), HasSubstr("not yet valid"));
}

TEST_F(CurlTrustTest, RefusesCertificatesThatSignThemselves) {
  EXPECT_EQ(postTo(collector::CertificateAuthority("localhost").certificate()).errorCode(), notTrusted);
}

/// The same on a system whose own settings let everything pass.
class CurlOnLaxSystemTest : public CurlTrustTest {
 protected:
  static void SetUpTestSuite() {
    // Read by OpenSSL when it is initialised, which has not happened yet when each test is a process of its
    // own.
    const std::string file = (fs::temp_directory_path() / ("kx-lax-" + std::to_string(getpid()))).string();
    std::ofstream(file) << "openssl_conf = main\n[main]\nssl_conf = ssl\n[ssl]\nsystem_default = lax\n"
                           "[lax]\nMinProtocol = TLSv1\nCipherString = DEFAULT:@SECLEVEL=0\n";
    setenv("OPENSSL_CONF", file.c_str(), 1);
    OPENSSL_init_ssl(OPENSSL_INIT_LOAD_CONFIG, nullptr);
    fs::remove(file);
  }
};

TEST_F(CurlOnLaxSystemTest, RefusesOldVersionsOfTLS) {
  TestServer::Options options;
  options.ciphers = "DEFAULT:@SECLEVEL=0";
  options.minimumVersion = TLS1_VERSION;
  options.maximumVersion = TLS1_1_VERSION;
  EXPECT_EQ(postTo(certificate(), options).errorCode(), handshakeFailed);
}

TEST_F(CurlTrustTest, SpeaksTheTwoCurrentVersionsOfTLS) {
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    TestServer::Options options;
    options.minimumVersion = version;
    options.maximumVersion = version;
    EXPECT_EQ(postTo(certificate(), options).status(), 200);
  }
}

TEST_F(CurlTrustTest, TrustsTheSystemsDirectory) {
  settings.certificateAuthorityFile = std::nullopt;
  settings.certificateDirectory = hashedDirectory(authority.certificate().certificate);
  EXPECT_EQ(post(server.url()).status(), 200);
}

TEST_F(CurlTrustTest, TrustsTheHostsFileBesideTheSystemsDirectory) {
  const collector::CertificateAuthority another("Another authority");
  settings.certificateDirectory = hashedDirectory(another.certificate().certificate);
  const auto now = std::chrono::system_clock::now();
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_EQ(postTo(another.issue({"localhost"}, now - hours(1), now + hours(1))).status(), 200);
}

TEST_F(CurlTrustTest, TrustsTheSystemsBundleBesideADirectoryThatLacksSomeOfIt) {
  const collector::CertificateAuthority another("Another authority");
  const collector::CertificateAuthority third("Third authority");
  settings.certificateDirectory = hashedDirectory(another.certificate().certificate);
  settings.certificateBundle = directory.path() + "/bundle.pem";
  std::ofstream(*settings.certificateBundle)
      << authority.certificate().certificate << third.certificate().certificate;
  const auto now = std::chrono::system_clock::now();
  const auto issuedBy = [now](const collector::CertificateAuthority &issuer) {
    return issuer.issue({"localhost"}, now - hours(1), now + hours(1));
  };
  for (const bool hostHasFile : {false, true}) {
    const collector::CertificateAuthority ofHost("The host's authority");
    if (hostHasFile) {
      std::ofstream(*settings.certificateAuthorityFile) << ofHost.certificate().certificate;
    } else {
      settings.certificateAuthorityFile = std::nullopt;
    }
    CurlURLSessionService service(dispatch, settings);
    for (const auto *issuer : {&authority, &another, &third, &ofHost}) {
      TestServer other(issuedBy(*issuer));
      EXPECT_EQ(sendBy(service, request(other.url())).status(), issuer != &ofHost || hostHasFile ? 200 : 0);
    }
    settings.certificateAuthorityFile = directory.path() + "/authority.pem";
  }
}

TEST_F(CurlTrustTest, ReadsNoBundleWhereTheDirectoryHasAsMuch) {
  const collector::CertificateAuthority another("Another authority");
  settings.certificateAuthorityFile = std::nullopt;
  settings.certificateDirectory = hashedDirectory(another.certificate().certificate);
  settings.certificateBundle = directory.path() + "/bundle.pem";
  std::ofstream(*settings.certificateBundle) << authority.certificate().certificate;
  EXPECT_EQ(post(server.url()).errorCode(), notTrusted);
}

TEST_F(CurlTrustTest, CountsNoCertificateWhoseFileIsGone) {
  settings.certificateAuthorityFile = std::nullopt;
  settings.certificateDirectory = emptyDirectory();
  settings.certificateBundle = directory.path() + "/bundle.pem";
  std::ofstream(*settings.certificateBundle) << authority.certificate().certificate;
  fs::create_symlink("gone.pem", settings.certificateDirectory + "/01234567.0");
  EXPECT_EQ(post(server.url()).status(), 200);
}

/// Where the bundle has more than the directory: what the directory has, the authority of the tests; what the
/// bundle has beside that, another.
class CurlWiderTrustTest : public CurlTrustTest {
 protected:
  CurlWiderTrustTest() {
    settings.linger = std::chrono::milliseconds(0);
    settings.certificateAuthorityFile = std::nullopt;
    settings.certificateDirectory = hashedDirectory(authority.certificate().certificate);
    settings.certificateBundle = directory.path() + "/bundle.pem";
    std::ofstream(*settings.certificateBundle)
        << authority.certificate().certificate << ofBundle.certificate().certificate;
  }

  static collector::PemCertificate issuedBy(const collector::CertificateAuthority &issuer) {
    const auto now = std::chrono::system_clock::now();
    return issuer.issue({"localhost"}, now - hours(1), now + hours(1));
  }

  const collector::CertificateAuthority ofBundle{"Of the bundle"};
  TestServer other{issuedBy(ofBundle)};
};

TEST_F(CurlWiderTrustTest, LooksFurtherOnceAndThenKeepsWhatItHasFound) {
  EXPECT_EQ(post(other.url()).status(), 200);
  EXPECT_EQ(other.connections(), 2);
  EXPECT_EQ(other.requests().size(), 1u);
  EXPECT_TRUE(eventually([] { return threadsNamed("kx-transport") == 0; }));
  EXPECT_EQ(post(other.url()).status(), 200);
  EXPECT_EQ(other.connections(), 3);
}

TEST_F(CurlWiderTrustTest, KeepsWhatTheRequestSays) {
  EXPECT_EQ(send(request(other.url(), {{"X-Field", "a value"}}), Data{'a', 'b'}).status(), 200);
  const std::string sent = other.requests().at(0);
  EXPECT_THAT(sent, HasSubstr("\r\n\r\nab"));
  const std::size_t field = sent.find("X-Field: a value\r\n");
  EXPECT_NE(field, std::string::npos);
  EXPECT_EQ(sent.find("X-Field", field + 1), std::string::npos) << "twice";
}

TEST_F(CurlWiderTrustTest, TriesOnceMoreWhereEvenThatIsNotEnough) {
  TestServer unknown(issuedBy(collector::CertificateAuthority("Unknown authority")));
  EXPECT_EQ(post(unknown.url()).errorCode(), notTrusted);
  EXPECT_EQ(unknown.connections(), 2);
  EXPECT_EQ(post(unknown.url()).errorCode(), notTrusted);
  EXPECT_EQ(unknown.connections(), 3);
}

TEST_F(CurlWiderTrustTest, TriesEachThatWasOnItsWay) {
  for (int i = 0; i < 4; ++i) task(request(other.url()))->resume();
  for (const auto &outcome : waitForOutcomes(4)) EXPECT_EQ(outcome.status(), 200);
  EXPECT_EQ(other.requests().size(), 4u);
}

TEST_F(CurlWiderTrustTest, SendsNothingTwice) {
  server.setScript([this](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.answer(307, "Location: " + other.url() + "\r\n");
  });
  EXPECT_EQ(post(server.url()).errorCode(), notTrusted);
  EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(CurlWiderTrustTest, CountsNoCertificateWhoseFileIsGone) {
  fs::create_symlink("gone.pem", settings.certificateDirectory + "/01234567.0");
  EXPECT_EQ(post(other.url()).status(), 200);
}

TEST_F(CurlWiderTrustTest, LooksIntoTheDirectoryOnceAsLongAsItIsEnough) {
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_TRUE(eventually([] { return threadsNamed("kx-transport") == 0; }));
  // Looked into again, the directory would have none, and the bundle would be read at once.
  fs::remove_all(settings.certificateDirectory);
  EXPECT_EQ(post(other.url()).status(), 200);
  EXPECT_EQ(other.connections(), 2);
}

TEST_F(CurlTrustTest, TrustsTheHostsFileWhereTheSystemHasNoSuchDirectory) {
  settings.certificateDirectory = emptyDirectory();
  EXPECT_EQ(post(server.url()).status(), 200);
  const collector::CertificateAuthority unknown("Unknown authority");
  const auto now = std::chrono::system_clock::now();
  EXPECT_EQ(postTo(unknown.issue({"localhost"}, now - hours(1), now + hours(1))).errorCode(), notTrusted);
}

TEST_F(CurlTrustTest, TrustsTheHostsFileBesideTheSystemsBundle) {
  const collector::CertificateAuthority another("Another authority");
  settings.certificateBundle = directory.path() + "/bundle.pem";
  settings.certificateDirectory = emptyDirectory();
  const auto now = std::chrono::system_clock::now();
  const auto issued = another.issue({"localhost"}, now - hours(1), now + hours(1));

  EXPECT_EQ(post(server.url()).status(), 200) << "no bundle at all";
  EXPECT_EQ(postTo(issued).errorCode(), notTrusted);
  std::ofstream(directory.path() + "/bundle.pem") << another.certificate().certificate;
  EXPECT_EQ(postTo(issued).status(), 200);
}

TEST_F(CurlTrustTest, TrustsTheSystemsBundleWhereThereIsNoSuchDirectory) {
  settings.certificateAuthorityFile = std::nullopt;
  settings.certificateDirectory = emptyDirectory();
  EXPECT_EQ(post(server.url()).errorCode(), notTrusted);
}

TEST_F(CurlTrustTest, SendsNothingWhenTheHostsFileCannotBeRead) {
  const std::string file = directory.path() + "/broken.pem";
  settings.certificateAuthorityFile = file;
  const std::string directories[] = {"/etc/ssl/certs", emptyDirectory()};
  const std::string pem = authority.certificate().certificate;
  for (const auto &certificates : directories) {
    settings.certificateDirectory = certificates;
    const auto postByAnotherService = [this] {
      CurlURLSessionService another(dispatch, settings);
      return sendBy(another, request(server.url()));
    };
    fs::remove_all(file);
    EXPECT_EQ(postByAnotherService().errorCode(), badAuthorityFile) << "missing";
    fs::create_directory(file);
    EXPECT_EQ(postByAnotherService().errorCode(), badAuthorityFile) << "a directory";
    fs::remove_all(file);
    for (const auto &contents :
         {std::string(), std::string("nonsense\n"), pem.substr(0, pem.size() / 2),
          "-----BEGIN CERTIFICATE-----\nbm9uc2Vuc2U=\n-----END CERTIFICATE-----\n" + pem}) {
      std::ofstream(file) << contents;
      EXPECT_EQ(postByAnotherService().errorCode(), badAuthorityFile) << contents;
    }
  }
  EXPECT_EQ(server.requests().size(), 0u);
}

}  // namespace
}  // namespace kx
