// The whole library on its real threads, with a service on the loopback interface. Under ThreadSanitizer this
// is also the proof that nothing in it races.

#include <glib.h>
#include <malloc.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <numeric>

#include "KXPublisher/KXPublisher.hpp"
#include "KXPublisher/platform/linux/LinuxHost.h"
#include "KXPublisher/providers/KXData.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "tests/platform/linux/MainLoop.h"
#include "tests/platform/linux/https/HTTPSTest.h"

namespace kx {
namespace {

class WholeLibraryTest : public HTTPSTest {
 protected:
  WholeLibraryTest() {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    LinuxHostOptions options;
    options.advertisingIdentifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
    options.certificateAuthorityFile = settings.certificateAuthorityFile;
    EXPECT_TRUE(LinuxHost::setOptions(options));
    server.setScript([](TestConnection &connection) {
      connection.handshake();
      while (true) {
        connection.readRequest();
        connection.answer(200, "Set-Authorization: a token\r\n");
      }
    });
  }

  std::string hostname() const { return "localhost:" + std::to_string(server.port()); }

  static bool loopUntil(const std::function<bool()> &condition) {
    return eventually([&condition] {
      while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
      }
      return condition();
    });
  }

  static std::size_t countIn(const char *directory) {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator()));
  }

  /// Bytes that the process has allocated, but for the requests that the server keeps.
  std::ptrdiff_t allocated() const {
    const auto requests = server.requests();
    const auto kept =
        std::accumulate(requests.begin(), requests.end(), std::ptrdiff_t{0},
                        [](std::ptrdiff_t sum, const std::string &request) {
                          return sum + static_cast<std::ptrdiff_t>(request.capacity() + sizeof request);
                        });
    return static_cast<std::ptrdiff_t>(mallinfo2().uordblks) - 2 * kept;  // with the copy made here
  }

  const MainThread thread;
};

TEST_F(WholeLibraryTest, SixtyFourFirstCallsMakeOneThatLogsInOnce) {
  constexpr std::size_t callersNumber = 64;
  std::atomic<std::size_t> ready{0};
  std::array<std::shared_ptr<KXPublisher>, callersNumber> made;
  std::vector<std::thread> callers;
  for (auto &one : made) {
    callers.emplace_back([&one, &ready, this] {
      ++ready;
      while (ready < callersNumber) std::this_thread::yield();
      one = KXPublisher::sharedInstanceWithApiToken("the API token", hostname());
    });
  }
  for (std::thread &caller : callers) caller.join();
  ASSERT_NE(made[0], nullptr);
  for (const auto &one : made) EXPECT_EQ(one, made[0]);
  const auto networking = KXNetworking::sharedInstanceWithApiToken(std::nullopt, std::nullopt);
  EXPECT_TRUE(loopUntil([&networking] { return networking->accessToken().has_value(); }));
  EXPECT_EQ(server.requests().size(), 1U);
}

TEST_F(WholeLibraryTest, DeliversTenThousandMessagesAtOnceAndIsAsBeforeAfterwards) {
  const auto publisher = KXPublisher::sharedInstanceWithApiToken("the API token", hostname());
  ASSERT_NE(publisher, nullptr);
  const auto networking = KXNetworking::sharedInstanceWithApiToken(std::nullopt, std::nullopt);
  EXPECT_TRUE(loopUntil([&networking] { return networking->accessToken().has_value(); }));

  // Each round is like the other; what is made once, and a sanitizer's own thread, are there after the first.
  constexpr std::size_t senders = 8;
  constexpr std::size_t messages = 1250;
  std::size_t threads = 0;
  std::size_t descriptors = 0;
  std::ptrdiff_t memory = 0;
  for (std::size_t round = 1; round <= 2; ++round) {
    std::atomic<bool> ended{false};
    std::thread changing([&] {
      while (!ended) {
        for (const auto &provider : publisher->dataProviders()) {
          provider->updateData();
          provider->resetData();
        }
        publisher->data();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
    std::vector<std::thread> sending;
    for (std::size_t i = 0; i < senders; ++i) {
      sending.emplace_back([&] {
        for (std::size_t j = 0; j < (round == 1 ? messages / 10 : messages); ++j)
          networking->sendData(publisher->data());
      });
    }
    const std::size_t expected = 1 + senders * (messages / 10 + (round - 1) * messages);
    const auto accepted = [] { return KXPublisher::diagnosis().messagesAccepted; };
    for (auto seen = accepted(); seen + 1 < expected && loopUntil([&] { return accepted() > seen; });
         seen = accepted()) {
    }
    EXPECT_EQ(accepted() + 1, expected) << KXPublisher::diagnosis().text();
    for (std::thread &sender : sending) sender.join();
    ended = true;
    changing.join();
    EXPECT_EQ(server.requests().size(), expected);
    EXPECT_TRUE(loopUntil([this] { return server.isIdle(); })) << "the connections are not kept for ever";
    if (round == 1) {
      EXPECT_TRUE(
          loopUntil([] { return threadsNamed("kx-transport") == 0 && threadsNamed("kx-standard") == 0; }));
      threads = countIn("/proc/self/task");
      descriptors = countIn("/proc/self/fd");
      memory = allocated();
    }
  }
  EXPECT_TRUE(loopUntil([=] { return countIn("/proc/self/task") <= threads; }));
  EXPECT_TRUE(loopUntil([=] { return countIn("/proc/self/fd") <= descriptors; }));
  EXPECT_LT(allocated() - memory, 1 << 20);
}

}  // namespace
}  // namespace kx
