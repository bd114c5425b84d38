#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tools/fleet/LoadService.h"
#include "tools/fleet/ScenarioFile.h"

namespace kx::fleet {
namespace {

TEST(LoadServiceTest, IsReadFromItsAddress) {
  const LoadService service = LoadService::of("https://127.0.0.1:8443");
  EXPECT_EQ(service.hostname, "127.0.0.1:8443");
  EXPECT_EQ(service.host, "127.0.0.1");
  EXPECT_EQ(service.port, "8443");
  ASSERT_EQ(service.addresses.size(), 1U);
  EXPECT_EQ(service.addresses[0].text, "127.0.0.1");
  EXPECT_TRUE(service.isOnLoopback());
  EXPECT_EQ(LoadService::of("https://127.0.0.1/").hostname, "127.0.0.1");
  EXPECT_EQ(LoadService::of("https://127.0.0.1").port, "443");
  EXPECT_EQ(LoadService::of("https://[::1]:8443").host, "::1");
  EXPECT_EQ(LoadService::of("https://[::1]:8443").hostname, "[::1]:8443");
  EXPECT_TRUE(LoadService::of("https://[::1]:8443").isOnLoopback());
  EXPECT_TRUE(LoadService::of("https://localhost").isOnLoopback());
}

TEST(LoadServiceTest, HasNothingButAHostAndAPort) {
  for (const char *wrong :
       {"", "localhost", "http://localhost", "https://", "https://localhost/path", "https://localhost?query",
        "https://localhost#fragment", "https://user@localhost", "https://localhost:port", "ftp://localhost"})
    EXPECT_THROW(LoadService::of(wrong), ScenarioError) << wrong;
}

TEST(LoadServiceTest, IsLoadedElsewhereOnlyByItsNameOnceMore) {
  // Of the documentation's networks: nobody's, and nobody is asked.
  const LoadService elsewhere = LoadService::of("https://192.0.2.1:8443");
  EXPECT_FALSE(elsewhere.isOnLoopback());
  EXPECT_THROW(requirePermission(elsewhere, {}), ScenarioError);
  EXPECT_THROW(requirePermission(elsewhere, {"192.0.2.2", "192.0.2"}), ScenarioError);
  EXPECT_NO_THROW(requirePermission(elsewhere, {"192.0.2.1"}));
  EXPECT_FALSE(LoadService::of("https://[2001:db8::1]").isOnLoopback());
  EXPECT_NO_THROW(requirePermission(LoadService::of("https://127.0.0.1"), {}));
}

TEST(LoadServiceTest, IsElsewhereWhereOneOfItsAddressesIs) {
  LoadService service = LoadService::of("https://127.0.0.1");
  service.addresses.push_back({"192.0.2.1", false});
  EXPECT_THROW(requirePermission(service, {}), ScenarioError);
}

}  // namespace
}  // namespace kx::fleet
