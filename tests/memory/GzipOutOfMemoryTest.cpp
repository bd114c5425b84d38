#include <dlfcn.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <new>
#include <optional>

#include "KXPublisher/transport/KXGzipUtility.h"
#include "tests/memory/FailingMemory.h"

namespace {

int streamsEnded = 0;

}  // namespace

/// zlib's, counted.
extern "C" __attribute__((visibility("default"))) int deflateEnd(z_streamp stream) {
  ++streamsEnded;
  return reinterpret_cast<decltype(&deflateEnd)>(dlsym(RTLD_NEXT, "deflateEnd"))(stream);
}

namespace kx {
namespace {

TEST(KXGzipUtilityOutOfMemory, EndsItsStreamWhereThereIsNoMemoryForTheOutput) {
  const std::optional<Data> input = Data(1000, 'a');
  failing_memory::failFrom(1, 1, [] { return true; });
  EXPECT_THROW(static_cast<void>(KXGzipUtility::gzipData(input)), std::bad_alloc);
  failing_memory::recover();
  EXPECT_TRUE(failing_memory::hasFailed());
  EXPECT_EQ(streamsEnded, 1);
}

}  // namespace
}  // namespace kx
