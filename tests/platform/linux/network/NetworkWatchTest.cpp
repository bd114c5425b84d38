#include <glib.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>

#include "platform/linux/bus/FileDescriptor.h"
#include "platform/linux/network/NetworkWatch.h"
#include "platform/linux/threads/ForkedChild.h"
#include "tests/platform/linux/network/NetworkNamespace.h"
#include "tests/support/InForkedChild.h"

namespace kx {
namespace {

constexpr int highestDescriptor = 100;

bool listensToTheKernel(int descriptor) {
  int domain = 0;
  socklen_t size = sizeof(domain);
  return getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_NETLINK;
}

int socketsThatListen() {
  int count = 0;
  for (int descriptor = 0; descriptor < highestDescriptor; ++descriptor) {
    if (listensToTheKernel(descriptor)) ++count;
  }
  return count;
}

class NetworkWatchTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ForkedChild::expect(); }
};

TEST_F(NetworkWatchTest, IsNoMoreInAForkedChild) {
  const int others = socketsThatListen();
  const auto watch = NetworkWatch::open([] {});
  ASSERT_NE(watch, nullptr);
  ASSERT_EQ(socketsThatListen(), others + 1);
  EXPECT_EQ(inForkedChild(&socketsThatListen), others);
  EXPECT_EQ(socketsThatListen(), others + 1) << "the parent's goes on";
}

TEST_F(NetworkWatchTest, OnceItIsGoneItsNumberIsAnotherFiles) {
  auto watch = NetworkWatch::open([] {});
  ASSERT_NE(watch, nullptr);
  int number = 0;
  while (number < highestDescriptor && !listensToTheKernel(number)) ++number;
  watch.reset();
  const FileDescriptor hosts(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, 0));
  ASSERT_EQ(hosts.number(), number);
  EXPECT_EQ(inForkedChild([number] { return listensToTheKernel(number) ? 1 : 0; }), 1);
}

TEST_F(NetworkWatchTest, ABurstIsLookedAtOnceInFiftyMilliseconds) {
  if (const auto reason = NetworkNamespace::enter()) GTEST_SKIP() << *reason;
  NetworkNamespace::addLink("eth0");
  int looks = 0;
  const auto watch = NetworkWatch::open([&looks] { ++looks; });
  ASSERT_NE(watch, nullptr);
  GMainContext *const context = g_main_context_default();
  watch->attach(context);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 30; ++i) {
    NetworkNamespace::setMTU("eth0", 1400 + i % 2);
    while (g_main_context_iteration(context, FALSE) != FALSE) {
    }
  }
  const auto bursts = 1 + (std::chrono::steady_clock::now() - begin) / std::chrono::milliseconds(50);
  EXPECT_LE(looks, bursts);
  while (looks == 0) g_main_context_iteration(context, TRUE);
}

}  // namespace
}  // namespace kx
