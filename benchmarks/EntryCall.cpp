// How long the library's entry call keeps its caller, in fresh processes, beside the start and end of one
// thread, which a host can relate to; and what the main loop then does for the library in its first turns.

#include <gio/gio.h>
#include <unistd.h>

#include <KXPublisher/KXPublisher.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
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

/// Processor time of the calling thread.
double processorMicroseconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

/// Tells whoever traces the system calls of the process where it is: a text that goes to no file.
void mark(const char *where) {
  [[maybe_unused]] const ssize_t refused = write(-1, where, std::strlen(where));
}

/// What the loop does until the library has all that it looks for at its start: half a second is plenty.
double loopAfterwards() {
  bool over = false;
  g_timeout_add(
      500,
      [](gpointer flag) -> gboolean {
        *static_cast<bool *>(flag) = true;
        return G_SOURCE_REMOVE;
      },
      &over);
  const double before = processorMicroseconds();
  while (!over) g_main_context_iteration(nullptr, TRUE);
  return processorMicroseconds() - before;
}

void child() {
  // A host that the system's services know by its name, as an installed one.
  g_application_set_default(g_application_new("com.example.KXHost", G_APPLICATION_NON_UNIQUE));
  kx::LinuxHostOptions options;
  options.advertisingIdentifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  if (!kx::LinuxHost::setOptions(options)) std::abort();
  const double thread = microseconds([] { std::thread([] {}).join(); });
  while (g_main_context_iteration(nullptr, FALSE) != FALSE) {  // GLib's own preparations are the host's
  }
  mark("entry call begins");
  const double entry =
      microseconds([] { kx::KXPublisher::sharedInstanceWithApiToken("token", "localhost:1"); });
  mark("entry call ends");
  const double later =
      microseconds([] { kx::KXPublisher::sharedInstanceWithApiToken("token", "localhost:1"); });
  const double loop = loopAfterwards();
  std::printf("%f %f %f %f\n", entry, later, thread, loop);
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
  std::vector<double> loops;
  for (int i = 0; i < count; ++i) {
    double entry = 0;
    double later = 0;
    double thread = 0;
    double loop = 0;
    std::istringstream measured(outputOfChild());
    if (!(measured >> entry >> later >> thread >> loop))
      throw std::runtime_error("a child has measured nothing");
    entries.push_back(entry);
    laterCalls.push_back(later);
    ratios.push_back(entry / thread);
    loops.push_back(loop);
  }
  std::printf("%d process starts, medians\n", count);
  std::printf("entry call, first:           %8.1f us\n", median(entries));
  std::printf("entry call, later:           %8.3f us\n", median(laterCalls));
  std::printf("first call to one thread:    %8.2f (ratio)\n", median(ratios));
  std::printf("the loop after it:           %8.1f us of processor time\n", median(loops));
}

}  // namespace

int main(int argc, char **argv) {
  return runParentOrChild(argc, argv, parent, child, 200);
}
