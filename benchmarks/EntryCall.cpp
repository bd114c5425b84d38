// How long the library's entry call keeps its caller, in fresh processes, beside the start and end of one
// thread, which a host can relate to.

#include <gio/gio.h>

#include <KXPublisher/KXPublisher.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "KXPublisher/platform/linux/LinuxHost.h"
#include "benchmarks/Children.h"

namespace {

using Microseconds = std::chrono::duration<double, std::micro>;

template <class Call>
double microseconds(Call call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return Microseconds(std::chrono::steady_clock::now() - start).count();
}

void child() {
  // A host that the system's services know by its name, as an installed one.
  g_application_set_default(g_application_new("com.example.KXHost", G_APPLICATION_NON_UNIQUE));
  kx::LinuxHostOptions options;
  options.advertisingIdentifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  if (!kx::LinuxHost::setOptions(options)) std::abort();
  const double thread = microseconds([] { std::thread([] {}).join(); });
  const double entry =
      microseconds([] { kx::KXPublisher::sharedInstanceWithApiToken("token", "localhost:1"); });
  const double later =
      microseconds([] { kx::KXPublisher::sharedInstanceWithApiToken("token", "localhost:1"); });
  std::printf("%f %f %f\n", entry, later, thread);
  std::fflush(stdout);
  std::_Exit(0);
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void parent(int count) {
  std::vector<double> entries;
  std::vector<double> laterCalls;
  std::vector<double> ratios;
  for (int i = 0; i < count; ++i) {
    double entry = 0;
    double later = 0;
    double thread = 0;
    std::istringstream measured(outputOfChild());
    if (!(measured >> entry >> later >> thread)) throw std::runtime_error("a child has measured nothing");
    entries.push_back(entry);
    laterCalls.push_back(later);
    ratios.push_back(entry / thread);
  }
  std::printf("%d process starts, medians\n", count);
  std::printf("entry call, first:           %8.1f us\n", median(entries));
  std::printf("entry call, later:           %8.3f us\n", median(laterCalls));
  std::printf("first call to one thread:    %8.2f (ratio)\n", median(ratios));
}

}  // namespace

int main(int argc, char **argv) {
  return runParentOrChild(argc, argv, parent, child, 200);
}
