#include "platform/linux/https/CurlProxy.h"

#include <initializer_list>

namespace kx {

namespace {

/// The value of the first of the variables that has one.
std::string firstOf(std::initializer_list<const char *> names, const Environment &environment) {
  for (const char *const name : names) {
    if (auto value = environment.value(name)) return *std::move(value);
  }
  return "";
}

}  // namespace

CurlProxy::CurlProxy(const Environment &environment)
    : proxy_(firstOf({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}, environment)),
      noProxy_(firstOf({"no_proxy", "NO_PROXY"}, environment)) {}

CurlProxy CurlProxy::ofProcess() {
  return CurlProxy(Environment::ofProcess(
      {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY", "no_proxy", "NO_PROXY"}));
}

CURLcode CurlProxy::applyTo(CURL *easy) const {
  // Empty texts, too: what is not set curl looks up.
  const CURLcode result = curl_easy_setopt(easy, CURLOPT_PROXY, proxy_.c_str());
  return result == CURLE_OK ? curl_easy_setopt(easy, CURLOPT_NOPROXY, noProxy_.c_str()) : result;
}

}  // namespace kx
