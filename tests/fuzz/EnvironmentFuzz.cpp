#include <memory>

#include "platform/linux/facts/Environment.h"
#include "platform/linux/facts/LinuxLocale.h"
#include "platform/linux/https/CurlProxy.h"
#include "tests/fuzz/Fuzzing.h"

// Whatever stands in the environment, languages are texts, and curl takes the proxy or says that it is none.

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  const auto values = kx::parts(bytes, size, 4);
  const auto locale = std::make_shared<kx::LinuxLocale>(kx::Environment(
      {{"LANGUAGE", values[0]}, {"LC_ALL", values[1]}, {"LC_MESSAGES", values[2]}, {"LANG", values[3]}}));
  for (const std::string &language : locale->preferredLanguages()) {
    kx::require(!language.empty() && kx::isUTF8(language), "a language is a text");
  }
  const kx::CurlProxy proxy(kx::Environment({{"https_proxy", values[0]},
                                             {"HTTPS_PROXY", values[1]},
                                             {"all_proxy", values[2]},
                                             {"no_proxy", values[3]}}));
  static const auto missing = kx::CurlLibrary::open();
  kx::require(!missing, "curl is there");
  const std::unique_ptr<CURL, void (*)(CURL *)> easy(kx::curl_easy_init(), kx::curl_easy_cleanup);
  proxy.applyTo(easy.get());
  return 0;
}
