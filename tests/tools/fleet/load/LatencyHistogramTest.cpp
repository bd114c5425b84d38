#include <gtest/gtest.h>

#include "tools/fleet/LatencyHistogram.h"

namespace kx::fleet {
namespace {

TEST(LatencyHistogramTest, HasNothingToTellOfNothing) {
  const LatencyHistogram histogram;
  EXPECT_EQ(histogram.count(), 0U);
  EXPECT_EQ(histogram.at(0.5), 0);
  EXPECT_EQ(histogram.greatest(), 0);
}

TEST(LatencyHistogramTest, TellsPercentilesToOnePartInSixtyFour) {
  for (const double unit : {1e-6, 1e-4, 1e-2, 1.0}) {
    LatencyHistogram histogram;
    for (int i = 1000; i > 0; --i) histogram.add(i * unit);
    EXPECT_EQ(histogram.count(), 1000U);
    for (const double share : {0.001, 0.1, 0.5, 0.9, 0.99, 0.999}) {
      const double exact = share * 1000 * unit;
      EXPECT_GE(histogram.at(share), exact * 0.9999) << unit << " " << share;
      EXPECT_LE(histogram.at(share), exact * (1 + 1.0 / 64)) << unit << " " << share;
    }
    EXPECT_EQ(histogram.at(1), 1000 * unit);
    EXPECT_EQ(histogram.greatest(), 1000 * unit);
  }
}

TEST(LatencyHistogramTest, TakesWhatIsLongerThanAnythingAndWhatIsNoTimeAtAll) {
  LatencyHistogram histogram;
  histogram.add(-1);
  histogram.add(1e12);
  EXPECT_EQ(histogram.at(0.5), 0);
  EXPECT_EQ(histogram.greatest(), 1e12);
  EXPECT_NEAR(histogram.at(1), 1e6, 1e6 / 64);
}

}  // namespace
}  // namespace kx::fleet
