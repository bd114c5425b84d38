// What a report costs on Linux, where the device's own addresses are a part of it, beside what nobody could
// do without: the C library's list of interfaces, and zlib on the same bytes. benchmarks/instructions counts
// the instructions of the functions here; by itself the program tells how long one report keeps its caller,
// each on a cold cache, as one of every ten minutes is.

#include <glib.h>
#include <ifaddrs.h>
#include <zlib.h>

#include <KXPublisher/KXPublisher.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "KXPublisher/platform/foundation/MutableDictionary.h"
#include "KXPublisher/platform/linux/LinuxHost.h"
#include "KXPublisher/providers/KXData.h"
#include "KXPublisher/transport/KXGzipUtility.h"
#include "KXPublisher/transport/KXNetworking.h"

namespace {

constexpr const char *identifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";

/// What the providers would know on a phone, in their order.
std::vector<kx::Dictionary> facts() {
  return {{{"deviceCategory", "Phone"},
           {"make", "Apple"},
           {"model", "Librem 5"},
           {"platform", "Debian GNU/Linux"},
           {"osVersion", "Debian GNU/Linux 12"},
           {"name", "aarch64"},
           {"userAgent",
            "Mozilla/5.0 (X11; Linux aarch64) AppleWebKit/605.1.15 (KHTML, like Gecko) Safari/605.1.15"},
           {"ifa", identifier},
           {"dnt", 0},
           {"languages", kx::Array{"de-DE", "en-GB"}}},
          {{"carrierCode", "262-01"}, {"radioAccessTechnology", "LTE"}},
          {{"lat", 52.520008},
           {"lon", 13.404954},
           {"horizontalAccuracy", 12.5},
           {"altitude", 34.25},
           {"verticalAccuracy", -1.0},
           {"country", "DE"},
           {"state", "Land Berlin"},
           {"city", "Berlin"},
           {"tzOffset", 7200}},
          {{"connectionType", "WIFI"}},
          {{"bundleId", "com.example.KXHost"}, {"asn", "kx-host"}}};
}

kx::KXPublisher &publisher() {
  static kx::KXPublisher &started = []() -> kx::KXPublisher & {
    kx::LinuxHostOptions options;
    options.advertisingIdentifier = identifier;
    if (!kx::LinuxHost::setOptions(options)) std::abort();
    kx::KXPublisher &made = *kx::KXPublisher::sharedInstanceWithApiToken("token", "localhost:1");
    const auto providers = made.dataProviders();
    const auto known = facts();
    for (std::size_t i = 0; i < known.size(); ++i) {
      kx::KXData &provider = *providers[i];
      while (provider.data() == nullptr &&
             provider.hasPermissions()) {  // what it finds by itself comes first
        g_main_context_iteration(nullptr, FALSE);
        std::this_thread::yield();
      }
      const auto map = std::make_shared<kx::MutableDictionary>(known[i]);
      provider.updateData(map);
      while (provider.data() != map) std::this_thread::yield();
    }
    return made;
  }();
  return started;
}

kx::Data bytesOf(const std::string &text) {
  return {text.begin(), text.end()};
}

kx::Data messageBytes() {
  kx::Array messages;
  messages.emplace_back(publisher().data());
  const auto json = kx::KXNetworking::jsonForObject(std::move(messages));
  if (!json) throw std::runtime_error("a message that is no JSON");
  return bytesOf(*json);
}

__attribute__((noinline)) std::size_t wholeReport() {
  const auto compressed = kx::KXGzipUtility::gzipData(messageBytes());
  if (!compressed) throw std::runtime_error("a message that cannot be compressed");
  return compressed->size();
}

__attribute__((noinline)) void bareInterfaceList() {
  ifaddrs *list = nullptr;
  if (getifaddrs(&list) == 0) freeifaddrs(list);
}

__attribute__((noinline)) std::size_t bareZlib(const kx::Data &input, kx::Data &output) {
  z_stream stream{};
  deflateInit2(&stream, -1, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
  stream.next_in = const_cast<Bytef *>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = output.data();
  stream.avail_out = static_cast<uInt>(output.size());
  deflate(&stream, Z_FINISH);
  deflateEnd(&stream);
  return stream.total_out;
}

// ---- How long the caller is kept

class ColdCache {
 public:
  /// Has the processor forget what it has read.
  void makeCold() {
    for (std::size_t at = 0; at < memory_.size(); at += 64) ++memory_[at];
  }

 private:
  std::vector<unsigned char> memory_ = std::vector<unsigned char>(std::size_t{64} << 20);
};

template <class Call>
double microseconds(Call call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void spacedReports(int count) {
  ColdCache cache;
  std::vector<double> reports;
  std::vector<double> lists;
  for (int i = 0; i < count; ++i) {
    cache.makeCold();
    reports.push_back(microseconds([] { publisher().logDataAsync(true); }));
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    cache.makeCold();
    lists.push_back(microseconds(&bareInterfaceList));
  }
  std::printf("%d reports, medians\n", count);
  std::printf("a report, on its caller's thread:   %8.1f us\n", median(reports));
  std::printf("the C library's list of interfaces: %8.1f us\n", median(lists));
}

}  // namespace

int main(int argc, char **argv) {
  constexpr int counted = 100;
  const kx::Data message = messageBytes();
  kx::Data output(message.size() * 2);
  std::size_t compressed = 0;
  for (int i = 0; i < counted; ++i) {
    compressed = wholeReport();
    bareInterfaceList();
    bareZlib(message, output);
  }
  std::printf("one message: %zu bytes, %zu compressed\n", message.size(), compressed);
  if (const int count = argc > 1 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 0; count > 0) {
    spacedReports(count);
  }
  std::fflush(stdout);
  std::_Exit(0);
}
