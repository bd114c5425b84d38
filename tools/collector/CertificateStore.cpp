#include "tools/collector/CertificateStore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>

namespace kx::collector {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void throwSystemError(const std::string &task, const fs::path &file) {
  throw std::system_error(errno, std::generic_category(), "Cannot " + task + " " + file.string());
}

/// An open file, by its descriptor.
class File {
 public:
  explicit File(int descriptor) : descriptor_(descriptor) {}
  ~File() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  File(File &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  File &operator=(File &&) = delete;

  int descriptor() const { return descriptor_; }

  bool write(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t written = ::write(descriptor_, text.data(), text.size());
      if (written < 0 && errno != EINTR) return false;
      if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
  }

 private:
  int descriptor_;
};

/// The file is there whole, with that mode, or not at all.
void writeFile(const fs::path &file, const std::string &text, mode_t mode) {
  std::string temporary = file.string() + ".XXXXXX";
  const File output(mkstemp(temporary.data()));  // mode 0600
  if (output.descriptor() < 0) throwSystemError("write", file);
  const bool written = output.write(text) && fchmod(output.descriptor(), mode) == 0 &&
                       fsync(output.descriptor()) == 0 && std::rename(temporary.c_str(), file.c_str()) == 0;
  if (!written) {
    const int reason = errno;
    unlink(temporary.c_str());
    errno = reason;
    throwSystemError("write", file);
  }
}

/// Keeps other collectors away from that directory, which is made when it is missing.
File locked(const fs::path &directory) {
  fs::create_directories(directory);
  File lock(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (lock.descriptor() < 0 || flock(lock.descriptor(), LOCK_EX) != 0) throwSystemError("lock", directory);
  return lock;
}

constexpr const char *advice =
    "\nTo have a new one made, which devices have to be told to trust, start once with --new-ca.";

}  // namespace

void refuseToShare(const fs::path &file) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) throwSystemError("read", file);
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) == 0) return;
  throw std::runtime_error("Others than its owner may read or change " + file.string());
}

std::string contentOf(const fs::path &file) {
  errno = 0;
  std::ifstream input(file, std::ios::binary);
  std::string content{std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>()};
  if (!input) throwSystemError("read", file);
  return content;
}

fs::path CertificateStore::defaultDirectory() {
  const auto variable = [](const char *name) {
    const char *value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): no other thread is there yet
    return fs::path(value == nullptr ? "" : value);
  };
  // One that is not absolute is to be ignored, says the XDG Base Directory Specification.
  if (const fs::path state = variable("XDG_STATE_HOME"); state.is_absolute()) return state / "kx-collector";
  if (const fs::path home = variable("HOME"); home.is_absolute()) return home / ".local/state/kx-collector";
  throw std::runtime_error("There is no home directory for the certificates; give --directory");
}

CertificateAuthority CertificateStore::authority() const {
  const File lock = locked(directory_);
  return fs::exists(authorityFile()) ? existing() : made();
}

CertificateAuthority CertificateStore::newAuthority() const {
  const File lock = locked(directory_);
  return made();
}

CertificateAuthority CertificateStore::existing() const {
  if (!fs::exists(authorityKeyFile())) {
    throw std::runtime_error(
        "The private key of the certificate authority is missing: " + authorityKeyFile().string() + advice);
  }
  try {
    refuseToShare(authorityKeyFile());
  } catch (const std::runtime_error &error) {
    throw std::runtime_error(error.what() + std::string(advice) +
                             "\nWhen you are sure that nobody has read it: chmod 600 " +
                             authorityKeyFile().string());
  }
  const PemCertificate kept{contentOf(authorityFile()), contentOf(authorityKeyFile())};
  try {
    CertificateAuthority authority(kept);
    if (authority.expiry() >= std::chrono::system_clock::now()) return authority;
  } catch (const std::runtime_error &error) {
    throw std::runtime_error(error.what() + (" (" + authorityFile().string() + ")") + advice);
  }
  throw std::runtime_error("The certificate authority has expired: " + authorityFile().string() + advice);
}

CertificateAuthority CertificateStore::made() const {
  CertificateAuthority authority("kx-collector development CA");
  writeFile(authorityKeyFile(), authority.certificate().privateKey, 0600);
  // Last, since it stands for both.
  writeFile(authorityFile(), authority.certificate().certificate, 0644);
  return authority;
}

}  // namespace kx::collector
