#include <gtest/gtest.h>

#include <stdexcept>

#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/simulated/SimulatedPlatform.h"

namespace kx {
namespace {

TEST(Platform, IsTheOneThatWasInstalled) {
  SimulatedPlatform &installed = SimulatedPlatform::install();
  EXPECT_EQ(&Platform::current(), &installed);
}

TEST(Platform, IsInstalledOnceOnly) {
  SimulatedPlatform &first = SimulatedPlatform::install();
  EXPECT_FALSE(Platform::install(std::make_unique<SimulatedPlatform>()));
  EXPECT_THROW(SimulatedPlatform::install(), std::logic_error);
  EXPECT_EQ(&Platform::current(), &first);
}

TEST(Platform, IsTheLinkedOneUnlessAnotherWasInstalledInTime) {
  Platform &linked = Platform::current();
  EXPECT_FALSE(Platform::install(std::make_unique<SimulatedPlatform>()));
  EXPECT_EQ(&Platform::current(), &linked);
}

}  // namespace
}  // namespace kx
