#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KXPublisher/platform/simulated/SimulatedPlatform.h"

namespace kx {

/// A test on a simulated device of its own, which is the process's platform.
class SimulatedTest : public ::testing::Test {
 protected:
  SimulatedPlatform &device = SimulatedPlatform::install();
};

}  // namespace kx
