// The whole library on real threads: whatever is refreshed, emptied and sent at the same time, each reader
// sees whole messages. Under ThreadSanitizer this is also the proof that no reader races with any of it.

#include <glib.h>
#include <gtest/gtest.h>

#include <KXPublisher/KXPublisher.hpp>
#include <atomic>
#include <thread>
#include <vector>

#include "KXPublisher/platform/linux/LinuxHost.h"
#include "KXPublisher/providers/KXData.h"

namespace kx {
namespace {

constexpr int transitions = 200;

TEST(LibraryOnThreads, EveryReaderSeesWholeMessagesWhateverChangesMeanwhile) {
  LinuxHostOptions options;
  options.advertisingIdentifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  ASSERT_TRUE(LinuxHost::setOptions(options));
  const auto publisher = KXPublisher::sharedInstanceWithApiToken("token", "127.0.0.1:1");
  ASSERT_NE(publisher, nullptr);

  std::atomic<bool> ended = false;
  std::atomic<long> messages = 0;
  std::atomic<long> incomplete = 0;
  const auto read = [&] {
    while (!ended) {
      const Dictionary message = publisher->data();
      ++messages;
      // The device provider's facts are all there, or none of them is.
      const bool hasPublisher = message.find(constants::dataKeyPublisherSdkName) != nullptr;
      const bool hasName = message.find("name") != nullptr;
      const bool hasPlatform = message.find("platform") != nullptr;
      if (!hasPublisher || hasName != hasPlatform || message.find("eventTime") == nullptr) ++incomplete;
      publisher->description();
      static_cast<void>(KXPublisher::diagnosis().text());
      for (const auto &provider : publisher->dataProviders()) provider->description();
    }
  };
  const auto change = [&] {
    while (!ended) {
      for (const auto &provider : publisher->dataProviders()) {
        provider->updateData();
        provider->resetData();
        provider->updateMonitoring();
      }
      publisher->enableDebugging();
      publisher->disableDebugging();
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) threads.emplace_back(read);
  for (int i = 0; i < 2; ++i) threads.emplace_back(change);

  for (int i = 0; i < transitions || messages < transitions; ++i) {
    if (i % 2 == 0) {
      LinuxHost::didEnterBackground();
    } else {
      LinuxHost::willEnterForeground();
    }
    g_main_context_iteration(nullptr, FALSE);
    std::this_thread::yield();
  }
  ended = true;
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(incomplete, 0) << "of " << messages << " messages";
}

}  // namespace
}  // namespace kx
