#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "KXPublisher/platform/foundation/MutableDictionary.h"

namespace kx {
namespace {

TEST(MutableDictionary, IsSeenToBecomeEmptyByWhoeverStillHoldsIt) {
  const auto dictionary = std::make_shared<MutableDictionary>(Dictionary{{"key", 1}});
  const auto holder = dictionary;
  dictionary->removeAllObjects();
  EXPECT_TRUE(holder->contents()->empty());
}

TEST(MutableDictionary, LeavesContentsThatWereTakenAsTheyWere) {
  MutableDictionary dictionary(Dictionary{{"key", 1}});
  const auto taken = dictionary.contents();
  dictionary.removeAllObjects();
  EXPECT_EQ(*taken, (Dictionary{{"key", 1}}));
}

TEST(MutableDictionary, GivesAReaderEveryEntryOrNone) {
  Dictionary full;
  for (int i = 0; i < 10; ++i) full.set("key" + std::to_string(i), i);
  for (int round = 0; round < 500; ++round) {
    MutableDictionary dictionary(full);
    std::atomic<bool> reading{false};
    std::thread emptier([&] {
      while (!reading) {
      }
      dictionary.removeAllObjects();
    });
    reading = true;
    const std::size_t size = dictionary.contents()->size();
    EXPECT_TRUE(size == 0 || size == full.size()) << size;
    emptier.join();
  }
}

}  // namespace
}  // namespace kx
