#include "platform/linux/network/NetworkWatch.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <new>
#include <utility>

#include "platform/linux/bus/FileDescriptor.h"
#include "platform/linux/console/CallbackBoundary.h"
#include "platform/linux/threads/ForkedChild.h"

namespace kx {

namespace {

constexpr gint64 longestBurst = 50000;  // microseconds
constexpr int mostNewsAtOnce = 1000;    // more than the kernel keeps for one socket
constexpr gint64 never = -1;

/// Rules and next hops are listened to because routes go with them without a word. An address has a route of
/// its own, with which it comes and goes.
constexpr std::uint32_t groups() {
  std::uint32_t mask = 0;
  for (const int group : {RTNLGRP_LINK, RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE, RTNLGRP_IPV4_RULE,
                          RTNLGRP_IPV6_RULE, RTNLGRP_NEXTHOP}) {
    mask |= 1U << (group - 1);
  }
  return mask;
}

}  // namespace

struct NetworkWatch::Watched {
  Watched(int socketNumber, NetworkWatch::Observer observer)
      : socket(socketNumber), mayHaveChanged(std::move(observer)) {
    ForkedChild::keepFrom(socketNumber);  // it would read the parent's news
  }

  /// Takes the news off the socket; false when there was none. What they say does not matter, the state is
  /// read afterwards; nor does it when there were too many for the kernel to keep (ENOBUFS).
  bool takeNews() const {
    char first = 0;  // the rest of each is dropped
    for (int taken = 0; taken < mostNewsAtOnce; ++taken) {
      const ssize_t result = recv(socket.number(), &first, sizeof(first), MSG_DONTWAIT);
      if (result < 0 && errno != ENOBUFS && errno != EINTR) return taken > 0;
    }
    return true;
  }

  const FileDescriptor socket;  ///< none for a deaf watch
  const NetworkWatch::Observer mayHaveChanged;
};

struct NetworkWatch::Source {
  GSource base;
  // Atomic, since the thread that runs the context may be another one than that which made the source.
  std::atomic<Watched *> watched;

  static std::atomic<Watched *> &of(GSource *source) { return reinterpret_cast<Source *>(source)->watched; }
};

std::shared_ptr<NetworkWatch> NetworkWatch::open(Observer mayHaveChanged) {
  auto watched = std::make_unique<Watched>(
      socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE), std::move(mayHaveChanged));
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = groups();
  const int number = watched->socket.number();
  if (!watched->socket.isOpen() ||
      bind(number, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
    return nullptr;
  }
  return make(std::move(watched));
}

std::shared_ptr<NetworkWatch> NetworkWatch::deaf(Observer mayHaveChanged) {
  return make(std::make_unique<Watched>(-1, std::move(mayHaveChanged)));
}

std::shared_ptr<NetworkWatch> NetworkWatch::make(std::unique_ptr<Watched> watched) {
  static GSourceFuncs functions{nullptr, nullptr, &dispatch, &finalize, nullptr, nullptr};
  GSource *const source = g_source_new(&functions, sizeof(Source));
  const FileDescriptor &socket = watched->socket;
  if (socket.isOpen()) {
    g_source_add_unix_fd(source, socket.number(), static_cast<GIOCondition>(G_IO_IN | G_IO_ERR));
  }
  (new (&reinterpret_cast<Source *>(source)->watched) std::atomic<Watched *>(nullptr))
      ->store(watched.release());
  g_source_set_name(source, "KXPublisher: network");
  return std::shared_ptr<NetworkWatch>(new NetworkWatch(source));
}

NetworkWatch::~NetworkWatch() {
  g_source_destroy(source_);
  g_source_unref(source_);
}

void NetworkWatch::attach(GMainContext *context) {
  g_source_attach(source_, context);
}

void NetworkWatch::checkSoon() {
  g_source_set_ready_time(source_, 0);
}

gboolean NetworkWatch::dispatch(GSource *source, GSourceFunc /*callback*/, gpointer /*data*/) {
  const Watched &watched = *Source::of(source).load();
  const bool hasNews = watched.takeNews();
  const gint64 due = g_source_get_ready_time(source);
  if (hasNews && due == never) {
    // News come in bursts, and only the state at the end counts. The wait is not prolonged by further news.
    g_source_set_ready_time(source, g_get_monotonic_time() + longestBurst);
  } else if (due != never && due <= g_get_monotonic_time()) {
    g_source_set_ready_time(source, never);
    runAtBoundary(watched.mayHaveChanged);
  }
  return G_SOURCE_CONTINUE;
}

void NetworkWatch::finalize(GSource *source) {
  const std::unique_ptr<Watched> watched(Source::of(source).load());
}

}  // namespace kx
