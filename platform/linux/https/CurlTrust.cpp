#include "platform/linux/https/CurlTrust.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

namespace kx {

namespace {

namespace fs = std::filesystem;

/// Whether this is a file name such as "5ed36f99.0".
bool isHashedName(std::string_view name) {
  constexpr std::size_t hashSize = 8;
  return name.size() > hashSize + 1 && name[hashSize] == '.' &&
         name.find_first_not_of("0123456789abcdef") == hashSize &&
         name.find_first_not_of("0123456789", hashSize + 1) == std::string_view::npos;
}

/// How many certificates can be looked up in the directory by the hashes of their names, counted up to
/// `enough`. For each link the system is asked whether there is a file behind it: a container can have got
/// the one without the other.
std::size_t hashedCertificates(const std::string &path, std::size_t enough) {
  const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir(path.c_str()), &closedir);
  if (directory == nullptr) return 0;
  std::size_t count = 0;
  while (count < enough) {
    // On a stream that no other thread has it is safe.
    const dirent *const entry = readdir(directory.get());  // NOLINT(concurrency-mt-unsafe)
    if (entry == nullptr) break;
    struct stat file {};
    if (isHashedName(entry->d_name) && fstatat(dirfd(directory.get()), entry->d_name, &file, 0) == 0 &&
        S_ISREG(file.st_mode)) {
      ++count;
    }
  }
  return count;
}

std::size_t certificatesIn(const std::string &bundle) {
  std::size_t count = 0;
  std::ifstream file(bundle);
  for (std::string line; std::getline(file, line);) {
    constexpr std::string_view beginning = "-----BEGIN ";
    if (line.compare(0, beginning.size(), beginning) == 0) ++count;
  }
  return count;
}

/// The file that curl was built for; empty when it was built for none.
std::string usualBundle() {
  const char *const file = curl_version_info(CURLVERSION_NOW)->cainfo;
  return file == nullptr ? "" : file;
}

std::string contentsOf(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

/// The host's file and, beside it, the system's. curl takes one file, so the two are made one.
CURLcode trustBoth(CURL *easy, const std::string &hostFile, const std::string &bundle) {
  std::string both = contentsOf(hostFile);
  // Of text without any certificate curl would not complain then.
  if (both.find("CERTIFICATE-----") == std::string::npos) return CURLE_SSL_CACERT_BADFILE;
  both += '\n' + contentsOf(bundle);
  curl_blob blob{both.data(), both.size(), CURL_BLOB_COPY};
  return curl_easy_setopt(easy, CURLOPT_CAINFO_BLOB, &blob);
}

}  // namespace

CurlTrust::CurlTrust(const CurlSettings &settings)
    : systemBundle_(settings.certificateBundle ? *settings.certificateBundle : usualBundle()),
      hostFile_(settings.certificateAuthorityFile) {
  if (hashedCertificates(settings.certificateDirectory, 1) > 0) {
    directory_ = settings.certificateDirectory;
  } else {
    bundle_ = systemBundle_;
    isWhole_ = true;
  }
}

bool CurlTrust::lookFurther() {
  if (!std::exchange(isWhole_, true)) {
    const std::size_t certificates = certificatesIn(systemBundle_);
    if (hashedCertificates(directory_, certificates) < certificates) bundle_ = systemBundle_;
  }
  return !bundle_.empty();
}

CURLcode CurlTrust::applyTo(CURL *easy) const {
  std::error_code error;
  // Opening a pipe might wait.
  if (hostFile_ && !fs::is_regular_file(*hostFile_, error)) return CURLE_SSL_CACERT_BADFILE;
  if (!directory_.empty()) {
    const CURLcode result = curl_easy_setopt(easy, CURLOPT_CAPATH, directory_.c_str());
    if (result != CURLE_OK) return result;
  }
  if (hostFile_ && !bundle_.empty()) return trustBoth(easy, *hostFile_, bundle_);
  const std::string &file = hostFile_ ? *hostFile_ : bundle_;
  return curl_easy_setopt(easy, CURLOPT_CAINFO, file.empty() ? nullptr : file.c_str());
}

}  // namespace kx
