// In how many process starts a provider's initial refresh finds no queue to compute on, because the worker
// that runs it is quicker than the thread that is still making the provider. That provider's first facts then
// come with its next refresh; for those that have no other one they do not come at all. What the main thread
// submits at background priority is started by its loop here, so that it should be in none;
// docs/performance.md has the figure without that.

#include <glib.h>

#include <KXPublisher/KXPublisher.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "KXPublisher/providers/KXData.h"
#include "benchmarks/Children.h"

namespace {

constexpr std::array<const char *, 5> providers{"KXDevice", "KXCarrier", "KXLocation", "KXConnection",
                                                "KXAsn"};

/// How long a provider's facts are waited for. They take a few milliseconds, unless they never come.
constexpr std::chrono::milliseconds patience{500};

/// Starts the library as a host does and prints a letter for each provider: `d` for data, `-` for none, `.`
/// where there is no permission and so no refresh.
void child() {
  const auto publisher = kx::KXPublisher::sharedInstanceWithApiToken("token", "localhost:1");
  const auto end = std::chrono::steady_clock::now() + patience;
  const auto settled = [](const auto &provider) {
    return provider->data() != nullptr || !provider->hasPermissions();
  };
  const auto all = publisher->dataProviders();
  while (!std::all_of(all.begin(), all.end(), settled) && std::chrono::steady_clock::now() < end) {
    g_main_context_iteration(nullptr, FALSE);
    g_usleep(100);
  }
  for (const auto &provider : all) {
    std::putchar(provider->data() != nullptr ? 'd' : (provider->hasPermissions() ? '-' : '.'));
  }
  std::fflush(stdout);
  std::_Exit(0);
}

void parent(int count) {
  std::array<int, providers.size()> refreshes{};
  std::array<int, providers.size()> missed{};
  int startsWithAMiss = 0;
  for (int i = 0; i < count; ++i) {
    const std::string letters = outputOfChild();
    for (std::size_t provider = 0; provider < providers.size(); ++provider) {
      if (letters.at(provider) != '.') ++refreshes[provider];
      if (letters.at(provider) == '-') ++missed[provider];
    }
    if (letters.find('-') != std::string::npos) ++startsWithAMiss;
  }
  std::printf("%d process starts; in %d of them an initial refresh found no queue\n", count, startsWithAMiss);
  for (std::size_t provider = 0; provider < providers.size(); ++provider) {
    std::printf("%-14s %d of %d initial refreshes\n", providers[provider], missed[provider],
                refreshes[provider]);
  }
}

}  // namespace

int main(int argc, char **argv) {
  return runParentOrChild(argc, argv, parent, child, 10000);
}
