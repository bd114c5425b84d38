#include <gtest/gtest.h>

#include "platform/linux/geocoding/TimeZoneOffset.h"

namespace kx {
namespace {

TEST(TimeZoneOffset, ChangesAtTheSecondThatTheClocksDo) {
  constexpr double change = 1774746000;  // 2026-03-29 01:00 UTC
  EXPECT_EQ(secondsFromGMT("Europe/Berlin", change - 1), 3600);
  EXPECT_EQ(secondsFromGMT("Europe/Berlin", change - 0.5), 3600);
  EXPECT_EQ(secondsFromGMT("Europe/Berlin", change), 7200);
}

TEST(TimeZoneOffset, IsRightFarAhead) {
  EXPECT_EQ(secondsFromGMT("America/New_York", 2236680000), -18000);  // 2040-11-16
  EXPECT_EQ(secondsFromGMT("America/New_York", 2225793600), -14400);  // 2040-07-13
}

TEST(TimeZoneOffset, IsAbsentWithoutAWordForWhatIsNoTimeZone) {
  testing::internal::CaptureStderr();
  for (const char *name : {"Europe/Atlantis", "", "/", "..", "Europe", "zone.tab", "../../../etc/passwd"}) {
    EXPECT_EQ(secondsFromGMT(name, 1768478400), std::nullopt) << name;
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace kx
