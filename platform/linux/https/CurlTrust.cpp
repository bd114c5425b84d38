#include "platform/linux/https/CurlTrust.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace kx {

namespace {

namespace fs = std::filesystem;

/// Whether this is a file name such as "5ed36f99.0".
bool isHashedName(const std::string &name) {
  constexpr std::size_t hashSize = 8;
  return name.size() > hashSize + 1 && name[hashSize] == '.' &&
         name.find_first_not_of("0123456789abcdef") == hashSize &&
         name.find_first_not_of("0123456789", hashSize + 1) == std::string::npos;
}

bool holdsHashedNames(const std::string &directory) {
  std::error_code error;
  for (fs::directory_iterator entry(directory, error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    if (isHashedName(entry->path().filename().string())) return true;
  }
  return false;
}

std::string contentsOf(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

/// The host's file and, beside it, the directory.
CURLcode trustDirectory(CURL *easy, const std::string &directory, const char *hostFile) {
  const CURLcode result = curl_easy_setopt(easy, CURLOPT_CAPATH, directory.c_str());
  return result == CURLE_OK ? curl_easy_setopt(easy, CURLOPT_CAINFO, hostFile) : result;
}

/// The host's file and, beside it, the one that curl would use by itself.
CURLcode trustBundle(CURL *easy, const std::string &hostFile) {
  // curl takes one file, so the two are made one. Of text without any certificate curl would not complain
  // then.
  std::string bundle = contentsOf(hostFile);
  if (bundle.find("CERTIFICATE-----") == std::string::npos) return CURLE_SSL_CACERT_BADFILE;
  const char *systemFile = nullptr;
  curl_easy_getinfo(easy, CURLINFO_CAINFO, &systemFile);
  if (systemFile != nullptr) bundle += '\n' + contentsOf(systemFile);
  curl_blob blob{bundle.data(), bundle.size(), CURL_BLOB_COPY};
  return curl_easy_setopt(easy, CURLOPT_CAINFO_BLOB, &blob);
}

}  // namespace

CurlTrust::CurlTrust(const CurlSettings &settings) : hostFile_(settings.certificateAuthorityFile) {
  if (holdsHashedNames(settings.certificateDirectory)) directory_ = settings.certificateDirectory;
}

CURLcode CurlTrust::applyTo(CURL *easy) const {
  std::error_code error;
  // Opening a pipe might wait.
  if (hostFile_ && !fs::is_regular_file(*hostFile_, error)) return CURLE_SSL_CACERT_BADFILE;
  if (directory_) return trustDirectory(easy, *directory_, hostFile_ ? hostFile_->c_str() : nullptr);
  return hostFile_ ? trustBundle(easy, *hostFile_) : CURLE_OK;
}

}  // namespace kx
