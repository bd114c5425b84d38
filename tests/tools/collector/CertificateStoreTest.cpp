#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <future>
#include <set>
#include <stdexcept>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tools/collector/CertificateStore.h"

namespace kx::collector {
namespace {

namespace fs = std::filesystem;

class CertificateStoreTest : public ::testing::Test {
 protected:
  const TemporaryDirectory temporary;
  const fs::path directory = fs::path(temporary.path()) / "a" / "b";
  const CertificateStore store{directory};

  /// Says why there is no authority to be had, and how there will be.
  void expectRefusal(const std::string &reason) const {
    try {
      store.authority();
      ADD_FAILURE() << "nothing was refused";
    } catch (const std::runtime_error &error) {
      EXPECT_THAT(error.what(), ::testing::HasSubstr(reason));
      EXPECT_THAT(error.what(), ::testing::HasSubstr("start once with --new-ca"));
    }
  }

  static fs::perms permissionsOf(const fs::path &file) { return fs::status(file).permissions(); }
};

TEST_F(CertificateStoreTest, MakesAnAuthorityWhenThereIsNone) {
  const CertificateAuthority authority = store.authority();
  EXPECT_EQ(contentOf(store.authorityFile()), authority.certificate().certificate);
  EXPECT_EQ(contentOf(store.authorityKeyFile()), authority.certificate().privateKey);
}

TEST_F(CertificateStoreTest, KeepsIt) {
  const CertificateAuthority first = store.authority();
  const CertificateAuthority second = CertificateStore(directory).authority();
  EXPECT_EQ(first.certificate().certificate, second.certificate().certificate);
  EXPECT_EQ(first.certificate().privateKey, second.certificate().privateKey);
}

TEST_F(CertificateStoreTest, OnlyTheOwnerCanReadThePrivateKey) {
  store.authority();
  EXPECT_EQ(permissionsOf(store.authorityKeyFile()), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(permissionsOf(store.authorityFile()),
            fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read | fs::perms::others_read);
}

TEST_F(CertificateStoreTest, LeavesNoOtherFilesBehind) {
  store.authority();
  std::set<std::string> names;
  for (const auto &entry : fs::directory_iterator(directory)) names.insert(entry.path().filename().string());
  EXPECT_EQ(names, (std::set<std::string>{"ca.pem", "ca-key.pem"}));
}

TEST_F(CertificateStoreTest, StartsAnewWhenItsFirstStartWasInterrupted) {
  const CertificateAuthority first = store.authority();
  fs::remove(store.authorityFile());  // it is written last
  const CertificateAuthority second = store.authority();
  EXPECT_NE(first.certificate().privateKey, second.certificate().privateKey);
  EXPECT_EQ(contentOf(store.authorityKeyFile()), second.certificate().privateKey);
}

TEST_F(CertificateStoreTest, DoesNotReplaceAnAuthorityWhoseKeyIsMissing) {
  const CertificateAuthority first = store.authority();
  fs::remove(store.authorityKeyFile());
  expectRefusal("is missing: " + store.authorityKeyFile().string());
  EXPECT_EQ(contentOf(store.authorityFile()), first.certificate().certificate);
}

TEST_F(CertificateStoreTest, DoesNotReplaceAnAuthorityThatCannotBeRead) {
  store.authority();
  std::ofstream(store.authorityFile()) << "damaged";
  expectRefusal("Cannot read the certificate");
  expectRefusal(store.authorityFile().string());
  EXPECT_EQ(contentOf(store.authorityFile()), "damaged");
}

TEST_F(CertificateStoreTest, DoesNotReplaceAnAuthorityThatHasExpired) {
  const CertificateAuthority expired("Expired", std::chrono::minutes(-1));
  store.authority();
  std::ofstream(store.authorityFile()) << expired.certificate().certificate;
  std::ofstream(store.authorityKeyFile()) << expired.certificate().privateKey;
  expectRefusal("has expired: " + store.authorityFile().string());
  EXPECT_EQ(contentOf(store.authorityFile()), expired.certificate().certificate);
}

TEST_F(CertificateStoreTest, DoesNotUseAKeyThatOthersMayReadOrChange) {
  store.authority();
  for (const fs::perms others :
       {fs::perms::group_read, fs::perms::others_read, fs::perms::group_write, fs::perms::others_write}) {
    fs::permissions(store.authorityKeyFile(), fs::perms::owner_read | fs::perms::owner_write | others);
    expectRefusal("Others than its owner may read or change " + store.authorityKeyFile().string());
    expectRefusal("chmod 600 " + store.authorityKeyFile().string());
  }
  fs::permissions(store.authorityKeyFile(), fs::perms::owner_read);
  EXPECT_NO_THROW(store.authority());
}

TEST_F(CertificateStoreTest, MakesANewAuthorityWhenItIsTold) {
  const CertificateAuthority first = store.authority();
  const auto replace = [this](const auto &damage) {
    const std::string before = contentOf(store.authorityFile());
    damage();
    const CertificateAuthority second = store.newAuthority();
    EXPECT_NE(second.certificate().certificate, before);
    EXPECT_EQ(store.authority().certificate().certificate, second.certificate().certificate);
    EXPECT_EQ(store.authority().certificate().privateKey, second.certificate().privateKey);
    EXPECT_EQ(permissionsOf(store.authorityKeyFile()), fs::perms::owner_read | fs::perms::owner_write);
  };
  replace([] {});
  replace([this] { fs::remove(store.authorityKeyFile()); });
  replace([this] { std::ofstream(store.authorityFile()) << "damaged"; });
  replace([this] { fs::permissions(store.authorityKeyFile(), fs::perms::all); });
}

TEST_F(CertificateStoreTest, ANewAuthorityNeedsNoOldOne) {
  const CertificateAuthority first = store.newAuthority();
  EXPECT_EQ(store.authority().certificate().certificate, first.certificate().certificate);
}

TEST_F(CertificateStoreTest, CollectorsThatStartTogetherShareOneAuthority) {
  std::vector<std::future<std::string>> starts;
  for (int count = 0; count < 8; ++count) {
    starts.push_back(std::async(std::launch::async, [this] {
      return CertificateStore(directory).authority().certificate().certificate;
    }));
  }
  std::set<std::string> certificates;
  for (auto &start : starts) certificates.insert(start.get());
  EXPECT_EQ(certificates.size(), 1u);
}

TEST_F(CertificateStoreTest, SaysWhyItCannotWrite) {
  const fs::path file = fs::path(temporary.path()) / "file";
  std::ofstream(file) << "in the way";
  EXPECT_THROW(CertificateStore(file / "below").authority(), fs::filesystem_error);
  EXPECT_THROW(CertificateStore(file).authority(), std::exception);
}

TEST_F(CertificateStoreTest, LivesInTheUsersStateDirectory) {
  setenv("HOME", "/home/someone", 1);
  setenv("XDG_STATE_HOME", "/state", 1);
  EXPECT_EQ(CertificateStore::defaultDirectory(), "/state/kx-collector");
  setenv("XDG_STATE_HOME", "relative", 1);
  EXPECT_EQ(CertificateStore::defaultDirectory(), "/home/someone/.local/state/kx-collector");
  unsetenv("XDG_STATE_HOME");
  EXPECT_EQ(CertificateStore::defaultDirectory(), "/home/someone/.local/state/kx-collector");
  unsetenv("HOME");
  EXPECT_THROW(CertificateStore::defaultDirectory(), std::runtime_error);
}

}  // namespace
}  // namespace kx::collector
