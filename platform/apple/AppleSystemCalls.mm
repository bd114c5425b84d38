#include "platform/apple/AppleSystemCalls.h"

#import <Foundation/Foundation.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/utsname.h>

#include <cstddef>
#include <cstring>
#include <utility>

#include "platform/apple/AppleText.h"

namespace kx {

namespace {

AddressFamily familyOf(const sockaddr &address) {
  switch (address.sa_family) {
    case AF_INET:
      return AddressFamily::inet;
    case AF_INET6:
      return AddressFamily::inet6;
    default:
      return AddressFamily::other;
  }
}

/// The system's list, freed in every case.
class SystemInterfaceList {
 public:
  SystemInterfaceList() {
    if (::getifaddrs(&first_) != 0) first_ = nullptr;
  }
  ~SystemInterfaceList() { ::freeifaddrs(first_); }
  SystemInterfaceList(const SystemInterfaceList &) = delete;
  SystemInterfaceList &operator=(const SystemInterfaceList &) = delete;

  const ifaddrs *first() const { return first_; }

 private:
  ifaddrs *first_ = nullptr;
};

}  // namespace

double AppleClock::timeIntervalSince1970() {
  return [NSDate date].timeIntervalSince1970;
}

std::optional<std::string> AppleSystemName::machine() {
  utsname names{};
  ::uname(&names);
  return textOf([NSString stringWithUTF8String:names.machine]);
}

std::vector<InterfaceAddress> AppleInterfaceList::getifaddrs() {
  // Both records have these four bytes in the same place.
  constexpr std::size_t offset = offsetof(sockaddr_in, sin_addr);
  static_assert(offset == offsetof(sockaddr_in6, sin6_flowinfo));

  std::vector<InterfaceAddress> addresses;
  const SystemInterfaceList list;
  for (const ifaddrs *entry = list.first(); entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_name == nullptr) continue;
    auto name = textOf([NSString stringWithUTF8String:entry->ifa_name]);
    if (!name) continue;
    InterfaceAddress address;
    address.name = *std::move(name);
    address.family = familyOf(*entry->ifa_addr);
    if (address.family != AddressFamily::other) {
      std::memcpy(address.bytesAfterPort.data(), reinterpret_cast<const char *>(entry->ifa_addr) + offset,
                  address.bytesAfterPort.size());
    }
    addresses.push_back(std::move(address));
  }
  return addresses;
}

}  // namespace kx
