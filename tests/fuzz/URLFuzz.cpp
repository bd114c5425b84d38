#include <curl/curl.h>

#include <algorithm>
#include <memory>

#include "diagnostics/Hostname.h"
#include "platform/linux/https/CurlURLSession.h"
#include "tests/fuzz/Fuzzing.h"
#include "tests/platform/linux/https/TestDispatch.h"

// What is taken for a URL leads to one host by HTTPS, says curl, and carries no credentials.

namespace {

std::string part(CURLU *url, CURLUPart which) {
  char *text = nullptr;
  if (curl_url_get(url, which, &text, 0) != CURLUE_OK) return {};
  const std::unique_ptr<char, void (*)(void *)> owner(text, &curl_free);
  return text;
}

void checkURL(const std::string &text) {
  static kx::TestDispatch dispatch;
  static kx::CurlURLSessionService service(dispatch, std::nullopt);
  const auto url = service.URLWithString(text);
  if (!url) return;
  kx::require(url->absoluteString == text, "a URL is the text that it was made of");
  kx::require(std::all_of(text.begin(), text.end(), [](char each) { return each > ' ' && each < 0x7f; }),
              "a URL is ASCII without blanks");
  const std::unique_ptr<CURLU, void (*)(CURLU *)> parsed(curl_url(), &curl_url_cleanup);
  kx::require(curl_url_set(parsed.get(), CURLUPART_URL, text.c_str(), 0) == CURLUE_OK, "curl takes it");
  kx::require(part(parsed.get(), CURLUPART_SCHEME) == "https", "it is HTTPS");
  kx::require(!part(parsed.get(), CURLUPART_HOST).empty(), "it has a host");
  kx::require(part(parsed.get(), CURLUPART_USER).empty() && part(parsed.get(), CURLUPART_PASSWORD).empty(),
              "it has no credentials");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  const std::string text(reinterpret_cast<const char *>(bytes), size);
  checkURL(text);
  checkURL("https://" + text + "/path");
  if (kx::isHostnameWithOrWithoutPort(text)) {
    kx::require(text.find_first_of(" /?#@\\%\t\r\n") == std::string::npos, "a host name is nothing else");
  }
  return 0;
}
