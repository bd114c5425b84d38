// `getifaddrs`: the machine's list or a test's, and a count of those that nobody has freed.

#include <dlfcn.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <set>

#include "tests/platform/apple/harness/StandIn.h"
#include "tests/platform/apple/harness/StandInDevice.h"

namespace {

/// An entry with its address.
struct Entry {
  ifaddrs entry{};
  sockaddr_in6 address{};
};

struct Lists {
  std::mutex mutex;
  std::set<const ifaddrs *> open;
};

Lists &lists() {
  static auto *const lists = new Lists;
  return *lists;
}

template <class Function>
Function *systems(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

ifaddrs *makeList(const std::vector<kx::standin::InterfaceEntry> &entries) {
  ifaddrs *first = nullptr;
  ifaddrs **next = &first;
  for (const auto &described : entries) {
    auto *const made = new Entry;
    made->entry.ifa_name = const_cast<char *>(described.name);
    if (described.family != AF_UNSPEC) {
      made->address.sin6_family = static_cast<sa_family_t>(described.family);
      std::memcpy(reinterpret_cast<char *>(&made->address) + offsetof(sockaddr_in, sin_addr),
                  described.bytesAfterPort.data(), described.bytesAfterPort.size());
      made->entry.ifa_addr = reinterpret_cast<sockaddr *>(&made->address);
    }
    *next = &made->entry;
    next = &made->entry.ifa_next;
  }
  return first;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int getifaddrs(ifaddrs **list) noexcept {
  const auto &interfaces = kx::standin::interfaces();
  if (!interfaces.canBeRead) {
    *list = reinterpret_cast<ifaddrs *>(1);  // not to be looked at
    return -1;
  }
  if (interfaces.entries) {
    *list = makeList(*interfaces.entries);
  } else if (systems<int(ifaddrs **)>("getifaddrs")(list) != 0) {
    return -1;
  }
  const std::lock_guard<std::mutex> lock(lists().mutex);
  if (*list != nullptr) lists().open.insert(*list);
  return 0;
}

extern "C" __attribute__((visibility("default"))) void freeifaddrs(ifaddrs *list) noexcept {
  if (list == nullptr) return;
  {
    const std::lock_guard<std::mutex> lock(lists().mutex);
    if (lists().open.erase(list) == 0) {
      kx::standin::complain("freeifaddrs of what is no list");
      return;
    }
  }
  if (!kx::standin::interfaces().entries) {
    systems<void(ifaddrs *)>("freeifaddrs")(list);
    return;
  }
  while (list != nullptr) {
    auto *const entry = reinterpret_cast<Entry *>(list);
    list = list->ifa_next;
    delete entry;
  }
}

namespace kx::standin {

Interfaces &interfaces() {
  static auto *const interfaces = new Interfaces;
  return *interfaces;
}

int openInterfaceLists() {
  const std::lock_guard<std::mutex> lock(lists().mutex);
  return static_cast<int>(lists().open.size());
}

}  // namespace kx::standin
