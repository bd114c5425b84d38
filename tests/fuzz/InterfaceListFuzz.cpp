#include <fuzzer/FuzzedDataProvider.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cstring>
#include <deque>

#include "platform/linux/facts/LinuxSystemCalls.h"
#include "tests/fuzz/Fuzzing.h"

// Whatever interfaces the system lists, their names are texts, and of an address no more is read than there
// is.

namespace {

/// One entry, as the system hands it out.
struct Entry {
  ifaddrs entry{};
  std::string name;
  std::vector<std::uint8_t> address;  // whose end the sanitizer knows
};

std::deque<Entry> entries;
int lists = 0;

}  // namespace

// In the places of the system's.

extern "C" __attribute__((visibility("default"))) int getifaddrs(ifaddrs **list) noexcept {
  *list = entries.empty() ? nullptr : &entries.front().entry;
  ++lists;
  return 0;
}

extern "C" __attribute__((visibility("default"))) void freeifaddrs(ifaddrs *list) noexcept {
  kx::require(list != nullptr, "nothing is not given back");
  --lists;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  FuzzedDataProvider input(bytes, size);
  entries.clear();
  std::size_t usable = 0;
  while (input.remaining_bytes() > 0) {
    Entry &made = entries.emplace_back();
    made.name = input.ConsumeRandomLengthString(IF_NAMESIZE);
    made.name.resize(std::strlen(made.name.c_str()));
    made.entry.ifa_name = made.name.data();
    if (input.ConsumeBool()) {
      const auto family =
          input.PickValueInArray<sa_family_t>({AF_INET, AF_INET6, AF_PACKET, AF_UNSPEC, 0xffff});
      std::size_t length = sizeof(sockaddr);  // at the least
      if (family == AF_INET6) length = sizeof(sockaddr_in6);
      made.address = input.ConsumeBytes<std::uint8_t>(length);
      made.address.resize(length);
      std::memcpy(made.address.data(), &family, sizeof family);
      made.entry.ifa_addr = reinterpret_cast<sockaddr *>(made.address.data());
      if (!made.name.empty() && kx::isUTF8(made.name)) ++usable;
    }
    if (entries.size() > 1) entries[entries.size() - 2].entry.ifa_next = &made.entry;
  }
  const auto addresses = kx::LinuxInterfaceList().getifaddrs();
  kx::require(addresses.size() == usable, "every entry with a name and an address is listed");
  kx::require(lists == (entries.empty() ? 1 : 0), "a list is given back once");
  lists = 0;
  return 0;
}
