#include <gtest/gtest.h>

#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/simulated/SimulatedFiber.h"

namespace kx {
namespace {

TEST(SimulatedFiber, RunsItsWorkInPieces) {
  SimulatedFiber fiber;
  std::string order;
  fiber.assign([&] {
    order += "1";
    fiber.suspend();
    order += "3";
  });
  EXPECT_FALSE(fiber.isIdle());
  fiber.resume();
  order += "2";
  EXPECT_FALSE(fiber.isIdle());
  fiber.resume();
  EXPECT_EQ(order, "123");
  EXPECT_TRUE(fiber.isIdle());
}

TEST(SimulatedFiber, TakesNewWorkWhenItIsIdle) {
  SimulatedFiber fiber;
  int ran = 0;
  for (int i = 0; i < 1000; ++i) {
    fiber.assign([&ran] { ++ran; });
    fiber.resume();
  }
  EXPECT_EQ(ran, 1000);
}

TEST(SimulatedFiber, ReleasesItsWorkWhenThatHasEnded) {
  const auto held = std::make_shared<int>(0);
  SimulatedFiber fiber;
  fiber.assign([held] {});
  fiber.resume();
  EXPECT_EQ(held.use_count(), 1);
}

TEST(SimulatedFiber, KeepsWhatIsThrownToItself) {
  SimulatedFiber first;
  SimulatedFiber second;
  std::vector<std::string> handled;
  const auto work = [&handled](SimulatedFiber &fiber, const char *name) {
    return [&handled, &fiber, name] {
      try {
        throw std::runtime_error(name);
      } catch (...) {
        fiber.suspend();
        try {
          throw;
        } catch (const std::exception &exception) {
          handled.emplace_back(exception.what());
        }
      }
    };
  };
  first.assign(work(first, "first"));
  second.assign(work(second, "second"));
  first.resume();
  EXPECT_EQ(std::current_exception(), nullptr);
  second.resume();
  first.resume();
  second.resume();
  EXPECT_EQ(handled, (std::vector<std::string>{"first", "second"}));
}

TEST(SimulatedFiber, HasAStackForDeepWork) {
  SimulatedFiber fiber;
  unsigned sum = 0;
  fiber.assign([&sum] {
    volatile unsigned char buffer[128 * 1024];
    for (unsigned i = 0; i < sizeof buffer; i += 1024) buffer[i] = 1;
    for (unsigned i = 0; i < sizeof buffer; i += 1024) sum += buffer[i];
  });
  fiber.resume();
  EXPECT_EQ(sum, 128u);
}

}  // namespace
}  // namespace kx
