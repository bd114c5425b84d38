#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <future>
#include <set>
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
  EXPECT_THROW(store.authority(), std::system_error);
  EXPECT_EQ(contentOf(store.authorityFile()), first.certificate().certificate);
}

TEST_F(CertificateStoreTest, DoesNotReplaceAnAuthorityThatCannotBeRead) {
  store.authority();
  std::ofstream(store.authorityFile()) << "damaged";
  EXPECT_THROW(store.authority(), std::runtime_error);
  EXPECT_EQ(contentOf(store.authorityFile()), "damaged");
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
