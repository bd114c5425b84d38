#include "tools/fleet/LoadService.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>

#include "tools/fleet/ScenarioFile.h"

namespace kx::fleet {

namespace {

constexpr const char *wantedURL = "an address like https://localhost:8443 is wanted here";

class ParsedURL {
 public:
  explicit ParsedURL(const std::string &text) : url_(curl_url(), &curl_url_cleanup) {
    constexpr unsigned onlyThat = CURLU_DISALLOW_USER;
    isURL_ = url_ != nullptr && curl_url_set(url_.get(), CURLUPART_URL, text.c_str(), onlyThat) == CURLUE_OK;
  }

  /// Empty where it has none.
  std::string part(CURLUPart part, unsigned flags = 0) const {
    char *text = nullptr;
    if (!isURL_ || curl_url_get(url_.get(), part, &text, flags) != CURLUE_OK) return "";
    const std::unique_ptr<char, void (*)(void *)> owner(text, &curl_free);
    return text;
  }

 private:
  std::unique_ptr<CURLU, void (*)(CURLU *)> url_;
  bool isURL_ = false;
};

bool isLoopback(const sockaddr *address) {
  if (address->sa_family == AF_INET) {
    const auto &four = *reinterpret_cast<const sockaddr_in *>(address);
    return ntohl(four.sin_addr.s_addr) >> 24U == 127;
  }
  const auto &six = *reinterpret_cast<const sockaddr_in6 *>(address);
  return address->sa_family == AF_INET6 && IN6_IS_ADDR_LOOPBACK(&six.sin6_addr);
}

std::string textOf(const sockaddr *address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const void *bytes = &reinterpret_cast<const sockaddr_in *>(address)->sin_addr;
  if (address->sa_family == AF_INET6) bytes = &reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr;
  return inet_ntop(address->sa_family, bytes, text.data(), text.size()) == nullptr ? "" : text.data();
}

std::vector<LoadService::Address> addressesOf(const std::string &host) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo *list = nullptr;
  const int result = getaddrinfo(host.c_str(), nullptr, &hints, &list);
  if (result != 0) throw std::runtime_error(host + ": " + gai_strerror(result));
  const std::unique_ptr<addrinfo, void (*)(addrinfo *)> owner(list, &freeaddrinfo);
  std::vector<LoadService::Address> addresses;
  for (const addrinfo *one = list; one != nullptr; one = one->ai_next) {
    if (one->ai_family != AF_INET && one->ai_family != AF_INET6) continue;
    addresses.push_back({textOf(one->ai_addr), isLoopback(one->ai_addr)});
  }
  return addresses;
}

}  // namespace

LoadService LoadService::of(const std::string &url) {
  const ParsedURL parsed(url);
  LoadService service;
  service.host = parsed.part(CURLUPART_HOST);
  service.port = parsed.part(CURLUPART_PORT, CURLU_DEFAULT_PORT);
  const bool isBare = parsed.part(CURLUPART_PATH) == "/" && parsed.part(CURLUPART_QUERY).empty() &&
                      parsed.part(CURLUPART_FRAGMENT).empty();
  constexpr const char *scheme = "https://";
  if (service.host.empty() || !isBare || url.compare(0, 8, scheme) != 0) throw ScenarioError(wantedURL);
  service.hostname = url.substr(8, url.find('/', 8) - 8);
  if (service.host.front() == '[') service.host = service.host.substr(1, service.host.size() - 2);
  service.addresses = addressesOf(service.host);
  return service;
}

bool LoadService::isOnLoopback() const {
  return std::all_of(addresses.begin(), addresses.end(),
                     [](const Address &address) { return address.isLoopback; });
}

void requirePermission(const LoadService &service, const std::vector<std::string> &reallyLoaded) {
  const bool isNamed =
      std::find(reallyLoaded.begin(), reallyLoaded.end(), service.host) != reallyLoaded.end();
  if (service.isOnLoopback() || isNamed) return;
  throw ScenarioError(service.host +
                      " is not this machine; if it is yours to load, name it once more: --really-load " +
                      service.host);
}

}  // namespace kx::fleet
