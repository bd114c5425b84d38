// Who may see the page: on loopback everybody, elsewhere who has the password.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "tools/collector/Faults.h"
#include "tools/collector/PageService.h"
#include "tools/collector/Store.h"

namespace kx::collector {
namespace {

constexpr const char *secret = "Basic dXNlcjpzZWNyZXQ=";  // user:secret

class PageAccessTest : public ::testing::Test {
 protected:
  PageAccess access;

  PageAnswer answer(HeaderFields fields, const std::string &target = "/api/counts") {
    Store store(std::nullopt, 10);
    Faults faults;
    PageService service(store, faults, CollectorStatus(), access);
    service.setPort(8080);
    return service.answer({"GET", target, std::move(fields), ""}, std::chrono::steady_clock::now());
  }
};

TEST_F(PageAccessTest, OnLoopbackNoPasswordIsNeeded) {
  EXPECT_EQ(answer({{"Host", "127.0.0.1:8080"}}).status, 200u);
  EXPECT_EQ(answer({{"Host", "192.0.2.7:8080"}}).status, 403u);
}

TEST_F(PageAccessTest, ElsewhereItIsCalledByItsOwnNamesAlone) {
  access.names = {"192.0.2.7", "[2001:db8::7]"};
  EXPECT_EQ(answer({{"Host", "192.0.2.7:8080"}, {"Origin", "http://192.0.2.7:8080"}}).status, 200u);
  EXPECT_EQ(answer({{"Host", "[2001:db8::7]:8080"}}).status, 200u);
  EXPECT_EQ(answer({{"Host", "192.0.2.8:8080"}}).status, 403u);
  EXPECT_EQ(answer({{"Host", "192.0.2.7:8081"}}).status, 403u);
  EXPECT_EQ(answer({{"Host", "192.0.2.7:8080"}, {"Origin", "http://192.0.2.8:8080"}}).status, 403u);
}

TEST_F(PageAccessTest, APasswordIsAskedForWhereThereIsOne) {
  access.password = "secret";
  for (const char *target : {"/", "/api/counts", "/api/events", "/ca.pem", "/nothing"}) {
    const PageAnswer refused = answer({{"Host", "localhost:8080"}}, target);
    EXPECT_EQ(refused.status, 401u) << target;
    EXPECT_EQ(refused.fields,
              (HeaderFields{{"WWW-Authenticate", "Basic realm=\"kx-collector\", charset=\"UTF-8\""}}));
    EXPECT_EQ(
        answer({{"Host", "localhost:8080"}, {"Authorization", "Basic dXNlcjp3cm9uZw=="}}, target).status,
        401u);
  }
  EXPECT_EQ(answer({{"Host", "localhost:8080"}, {"Authorization", secret}}).status, 200u);
  EXPECT_EQ(answer({{"Host", "localhost:8080"}, {"Authorization", secret}, {"Authorization", secret}}).status,
            401u);
}

// A password is no reason to answer other web sites.
TEST_F(PageAccessTest, OtherSitesAreRefusedWithThePasswordAsWell) {
  access.password = "secret";
  EXPECT_EQ(answer({{"Host", "other:8080"}, {"Authorization", secret}}).status, 403u);
}

}  // namespace
}  // namespace kx::collector
