// A host of the library, through the door that every host has. script/bench tells it what to do and looks at
// it from outside. What is counted is in functions whose names begin with "measured", which are called
// through pointers, so that no compiler makes anything else of them.

#include <KXPublisher/platform/linux/LinuxHost.h>
#include <glib-unix.h>
#include <ifaddrs.h>
#include <linux/rtnetlink.h>
#include <pthread.h>
#include <sys/socket.h>
#include <zlib.h>

#include <KXPublisher/KXPublisher.hpp>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KXPublisher/transport/KXGzipUtility.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "benchmarks/Allocations.h"
#include "benchmarks/Commands.h"

namespace {

constexpr std::size_t KiB = 1024;

struct State {
  std::shared_ptr<kx::KXPublisher> publisher;
  std::string token;
  std::string hostname;
  kx::Dictionary message;
  std::optional<std::string> json;
  std::optional<kx::Data> compressed;
  kx::Data room;
};

State &state() {
  static State &only = *new State;  // never destroyed: the library's threads live as long as the process
  return only;
}

template <class T>
const T &there(const std::optional<T> &result) {
  if (!result) std::abort();  // a step that has yielded nothing has cost nothing
  return *result;
}

}  // namespace

// ---- What is measured

void measuredEntryCall();
void measuredCallsAlone();
void measuredReport();
void measuredBackground();
void measuredAssembling();
void measuredSerialising();
void measuredCompressing();
void measuredAddressesAlone();
void measuredZlibAlone();

void measuredEntryCall() {
  state().publisher = kx::KXPublisher::sharedInstanceWithApiToken(state().token, state().hostname);
}

/// What the entry call cannot do without, by hand: it listens to the network, wakes the main loop, and starts
/// the thread that the login runs on.
void measuredCallsAlone() {
  const int news = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
  if (bind(news, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) std::abort();
  g_unix_fd_add(
      news, G_IO_IN, [](gint, GIOCondition, gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 512 * KiB);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread{};
  const auto nothing = [](void *) -> void * { return nullptr; };
  if (pthread_create(&thread, &attributes, nothing, nullptr) != 0) std::abort();
  pthread_attr_destroy(&attributes);
}

void measuredReport() {
  state().publisher->logDataAsync(true);
}

void measuredBackground() {
  kx::LinuxHost::didEnterBackground();
}

void measuredAssembling() {
  state().message = state().publisher->data();
}

void measuredSerialising() {
  kx::Array messages;
  messages.emplace_back(std::move(state().message));
  state().json = kx::KXNetworking::jsonForObject(std::move(messages));
}

void measuredCompressing() {
  const std::string &json = there(state().json);
  state().compressed = kx::KXGzipUtility::gzipData(kx::Data(json.begin(), json.end()));
}

/// As a program without the library would ask for them.
void measuredAddressesAlone() {
  ifaddrs *list = nullptr;
  if (getifaddrs(&list) != 0 || list == nullptr) std::abort();
  freeifaddrs(list);
}

/// zlib as a program without the library would drive it: same parameters, same size of buffer.
void measuredZlibAlone() {
  const std::string &json = there(state().json);
  z_stream stream{};
  deflateInit2(&stream, -1, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
  stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(json.data()));
  stream.avail_in = static_cast<uInt>(json.size());
  stream.next_out = state().room.data();
  stream.avail_out = static_cast<uInt>(state().room.size());
  if (deflate(&stream, Z_FINISH) != Z_STREAM_END) std::abort();
  deflateEnd(&stream);
}

// ---- The commands

namespace {

/// On an empty cache, by the thread's processor time: no other program's share is in it.
void time(const std::string &name, void (*call)()) {
  void (*volatile const opaque)() = call;
  emptyCaches();
  double time = 0;
  long before = 0;
  long after = 0;
  const std::function<void()> counted = [&] {
    before = allocations();
    opaque();
    after = allocations();
  };
  tellProcessorTime();
  marked(name, [&] { time = microseconds(CLOCK_THREAD_CPUTIME_ID, counted); });
  tell(name, time);
  tell(name + "-allocations", static_cast<double>(after - before));
}

/// TOKEN HOSTNAME FILE-OF-CERTIFICATES
void start(const std::vector<std::string> &words) {
  kx::LinuxHostOptions options;
  options.advertisingIdentifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  options.applicationIdentifier = "com.example.KXHost";
  options.certificateAuthorityFile = words.at(2);
  if (!kx::LinuxHost::setOptions(options)) std::abort();
  state().token = words.at(0);
  state().hostname = words.at(1);
  time("entry-call", &measuredEntryCall);
  if (state().publisher == nullptr) std::abort();
}

void calls(const std::vector<std::string> & /*words*/) {
  time("calls", &measuredCallsAlone);
}

void report(const std::vector<std::string> & /*words*/) {
  time("report", &measuredReport);
}

void addresses(const std::vector<std::string> & /*words*/) {
  time("addresses", &measuredAddressesAlone);
}

/// What a timer's report cannot do without: GLib's loop wakes for a timer and asks for the addresses, a
/// second later.
void timer(const std::vector<std::string> & /*words*/) {
  g_timeout_add(
      1000,
      [](gpointer) {
        measuredAddressesAlone();
        return G_SOURCE_REMOVE;
      },
      nullptr);
}

void background(const std::vector<std::string> & /*words*/) {
  time("background", &measuredBackground);
}

void foreground(const std::vector<std::string> & /*words*/) {
  kx::LinuxHost::willEnterForeground();
}

/// The steps of a report one by one on this thread, and what they cannot do without.
void work(const std::vector<std::string> & /*words*/) {
  state().room.resize(4096);
  const auto take = [](void (*step)()) {
    void (*volatile const opaque)() = step;
    opaque();
  };
  const long before = allocations();
  take(&measuredAssembling);
  take(&measuredSerialising);
  take(&measuredCompressing);
  tell("work-allocations", static_cast<double>(allocations() - before));
  take(&measuredAddressesAlone);
  take(&measuredZlibAlone);
  tell("json", static_cast<double>(there(state().json).size()));
  tell("compressed", static_cast<double>(there(state().compressed).size()));
}

/// COUNT messages, handed over one after the other on this thread.
void burst(const std::vector<std::string> &words) {
  const auto count = static_cast<unsigned>(std::stoul(words.at(0)));
  const unsigned before = kx::KXPublisher::diagnosis().messagesAccepted;
  unsigned accepted = 0;
  unsigned still = 0;
  constexpr timespec pause{0, 2'000'000};
  constexpr unsigned patience = 5000;  // pauses without an answer
  const double time = microseconds(CLOCK_MONOTONIC, [&] {
    for (unsigned i = 0; i < count; ++i) state().publisher->logDataAsync(false);
    while (accepted < count && still < patience) {
      nanosleep(&pause, nullptr);
      const unsigned now = kx::KXPublisher::diagnosis().messagesAccepted - before;
      still = now == accepted ? still + 1 : 0;
      accepted = now;
    }
  });
  tell("rate", accepted / (time / 1e6));
  tell("lost", count - accepted);
}

void accepted(const std::vector<std::string> & /*words*/) {
  tell("accepted", kx::KXPublisher::diagnosis().messagesAccepted);
}

}  // namespace

int main() {
  return obey({{"start", start},
               {"calls", calls},
               {"report", report},
               {"addresses", addresses},
               {"timer", timer},
               {"background", background},
               {"foreground", foreground},
               {"work", work},
               {"burst", burst},
               {"accepted", accepted}});
}
