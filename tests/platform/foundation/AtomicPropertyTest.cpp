#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "KXPublisher/platform/foundation/AtomicProperty.h"

namespace kx {
namespace {

TEST(AtomicProperty, IsAValueInitialisedValueAtFirst) {
  EXPECT_EQ(AtomicProperty<int>().get(), 0);
  EXPECT_EQ(AtomicProperty<std::shared_ptr<int>>().get(), nullptr);
}

TEST(AtomicProperty, GivesAReaderOneWholeValueWhileAnotherThreadWrites) {
  const std::string first(100, 'a');
  const std::string second(200, 'b');
  AtomicProperty<std::string> property(first);
  std::thread writer([&] {
    for (int i = 0; i < 2000; ++i) property.set(i % 2 == 0 ? second : first);
  });
  for (int i = 0; i < 2000; ++i) {
    const std::string value = property.get();
    EXPECT_TRUE(value == first || value == second);
  }
  writer.join();
}

TEST(AtomicProperty, ReleasesTheReplacedValueWithoutItsLock) {
  struct ReadsPropertyWhenReleased {
    AtomicProperty<std::shared_ptr<ReadsPropertyWhenReleased>> &property;
    ~ReadsPropertyWhenReleased() {
      EXPECT_EQ(property.get(), nullptr);
    }  // would wait for ever under the lock
  };
  AtomicProperty<std::shared_ptr<ReadsPropertyWhenReleased>> property;
  property.set(std::shared_ptr<ReadsPropertyWhenReleased>(new ReadsPropertyWhenReleased{property}));
  property.set(nullptr);
}

}  // namespace
}  // namespace kx
