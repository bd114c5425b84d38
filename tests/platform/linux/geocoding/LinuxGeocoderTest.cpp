#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <string>
#include <thread>

#include "platform/linux/geocoding/LinuxGeocoder.h"
#include "platform/linux/threads/LinuxWorkerPool.h"
#include "tests/platform/linux/geocoding/GeocoderFixture.h"
#include "tests/platform/linux/geocoding/SmallTable.h"
#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

class LinuxGeocoderTest : public GeocoderFixture {
 protected:
  std::shared_ptr<LinuxGeocoder> makeGeocoder(const std::string &path) {
    return std::make_shared<LinuxGeocoder>(dispatch(), clock_, path);
  }
  /// A geocoder that knows one place, in the middle of the map.
  std::shared_ptr<LinuxGeocoder> makeGeocoder() {
    writeFile(path_, smallTable({placeAt(0, 0, "Middle")}));
    return makeGeocoder(path_);
  }

  const TemporaryDirectory directory_;
  const std::string path_ = directory_.path() + "/places";
};

TEST_F(LinuxGeocoderTest, AnswersWithTheNearestPlace) {
  const auto found = placemarksAt(*makeGeocoder(), 0.1, 0.1);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].ISOcountryCode, "DE");
  EXPECT_EQ(found[0].administrativeArea, "Somewhere");
  EXPECT_EQ(found[0].locality, "Middle");
  EXPECT_EQ(found[0].postalCode, std::nullopt);
  EXPECT_EQ(found[0].timeZoneSecondsFromGMT, 3600);
}

TEST_F(LinuxGeocoderTest, AnswersWithoutAPlaceWhenTheNearestIsFiftyKilometresAway) {
  const auto geocoder = makeGeocoder();
  EXPECT_EQ(placemarksAt(*geocoder, 0.4496, 0).size(), 1U);
  EXPECT_EQ(placemarksAt(*geocoder, 0.4497, 0).size(), 0U);
  EXPECT_EQ(placemarksAt(*geocoder, std::nan(""), 0).size(), 0U);
}

TEST_F(LinuxGeocoderTest, GivesTheOffsetOfTheMomentOfTheLookup) {
  const auto geocoder = makeGeocoder();
  clock_.time = july;
  EXPECT_EQ(placemarksAt(*geocoder, 0, 0).at(0).timeZoneSecondsFromGMT, 7200);
  clock_.time = january;
  EXPECT_EQ(placemarksAt(*geocoder, 0, 0).at(0).timeZoneSecondsFromGMT, 3600);
}

TEST_F(LinuxGeocoderTest, LeavesOutTheOffsetOfATimeZoneThatTheSystemDoesNotKnow) {
  writeFile(path_, smallTable({placeAt(0, 0, "Middle", "DE", "Europe/Atlantis")}));
  const auto found = placemarksAt(*makeGeocoder(path_), 0, 0);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].locality, "Middle");
  EXPECT_EQ(found[0].timeZoneSecondsFromGMT, std::nullopt);
}

TEST_F(LinuxGeocoderTest, AnswersOnAWorkerOfLowPriority) {
  std::promise<bool> onWorker;
  makeGeocoder()->reverseGeocodeLocation(locationAt(0, 0), [&onWorker](const std::vector<Placemark> &) {
    onWorker.set_value(LinuxWorkerPool::isWorker(DispatchQueuePriority::low));
  });
  EXPECT_TRUE(onWorker.get_future().get());
}

TEST_F(LinuxGeocoderTest, AnswersEachLookupOnceWhoeverAsks) {
  const auto geocoder = makeGeocoder();
  constexpr int lookups = 50;
  std::array<std::atomic<int>, 4 * lookups> answers{};
  std::atomic<int> found{0};
  std::vector<std::thread> callers;
  for (int caller = 0; caller < 4; ++caller) {
    callers.emplace_back([&, caller] {
      for (int lookup = 0; lookup < lookups; ++lookup) {
        auto &answered = answers.at(static_cast<std::size_t>(caller * lookups + lookup));
        geocoder->reverseGeocodeLocation(locationAt(0, 0), [&](const std::vector<Placemark> &placemarks) {
          ++answered;
          found += static_cast<int>(placemarks.size());
        });
      }
    });
  }
  for (std::thread &caller : callers) caller.join();
  EXPECT_TRUE(eventually([&] { return found == 4 * lookups; }));
  for (const auto &answered : answers) EXPECT_EQ(answered, 1);
}

TEST_F(LinuxGeocoderTest, TouchesNoFileBeforeTheFirstLookup) {
  const auto geocoder = makeGeocoder(path_);
  writeFile(path_, smallTable({placeAt(0, 0, "Middle")}));
  EXPECT_EQ(placemarksAt(*geocoder, 0, 0).size(), 1U);
}

TEST_F(LinuxGeocoderTest, KeepsItsTableWhenAnotherOneTakesItsName) {
  const auto geocoder = makeGeocoder();
  EXPECT_EQ(placemarksAt(*geocoder, 0, 0).at(0).locality, "Middle");
  writeFile(path_ + ".new", "no table");
  std::filesystem::rename(path_ + ".new", path_);
  EXPECT_EQ(placemarksAt(*geocoder, 0, 0).at(0).locality, "Middle");
}

TEST_F(LinuxGeocoderTest, FindsNothingWithoutATable) {
  const std::string pipe = directory_.path() + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::string empty = directory_.path() + "/empty";
  writeFile(empty, "");
  for (const std::string &path :
       {path_, directory_.path(), pipe, empty, std::string("/dev/zero"), std::string()}) {
    EXPECT_TRUE(placemarksAt(*makeGeocoder(path), 0, 0).empty()) << path;
  }
}

TEST_F(LinuxGeocoderTest, FindsNothingInADamagedTable) {
  const std::string whole = smallTable({placeAt(0, 0, "Middle")});
  for (const std::size_t size : {std::size_t{1}, std::size_t{31}, std::size_t{32}, whole.size() - 1}) {
    writeFile(path_, whole.substr(0, size));
    EXPECT_TRUE(placemarksAt(*makeGeocoder(path_), 0, 0).empty()) << size << " bytes";
  }
  std::string flipped = whole;
  flipped.back() = static_cast<char>(flipped.back() ^ 1);
  writeFile(path_, flipped);
  EXPECT_TRUE(placemarksAt(*makeGeocoder(path_), 0, 0).empty());
}

TEST_F(LinuxGeocoderTest, AnswersWhenNobodyElseHoldsItAnyMore) {
  auto geocoder = makeGeocoder();
  const std::weak_ptr<LinuxGeocoder> observed = geocoder;
  std::promise<std::size_t> found;
  geocoder->reverseGeocodeLocation(locationAt(0, 0), [&found](const std::vector<Placemark> &placemarks) {
    found.set_value(placemarks.size());
  });
  geocoder.reset();
  EXPECT_EQ(found.get_future().get(), 1U);
  EXPECT_TRUE(eventually([&observed] { return observed.expired(); }));
}

TEST_F(LinuxGeocoderTest, SurvivesAHandlerThatThrows) {
  const auto geocoder = makeGeocoder();
  testing::internal::CaptureStderr();
  std::atomic<int> calls{0};
  struct Thrown : std::runtime_error {
    explicit Thrown(std::shared_ptr<int> kept)
        : std::runtime_error("thrown by a handler"), held(std::move(kept)) {}
    std::shared_ptr<int> held;  // goes once the exception has been told
  };
  const std::shared_ptr<int> held = std::make_shared<int>();
  geocoder->reverseGeocodeLocation(locationAt(0, 0), [&calls, held](const std::vector<Placemark> &) {
    ++calls;
    throw Thrown(held);
  });
  EXPECT_TRUE(eventually([&held] { return held.use_count() == 1; }));
  EXPECT_EQ(calls, 1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("thrown by a handler"));
  EXPECT_EQ(placemarksAt(*geocoder, 0, 0).size(), 1U);
}

}  // namespace
}  // namespace kx
