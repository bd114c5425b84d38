#include <gtest/gtest.h>

#include "KXPublisher/platform/URLSession.h"

namespace kx {
namespace {

TEST(URLRequest, ReplacesAFieldThatIsSetWhateverItsCase) {
  URLRequest request(URL{"https://host/"});
  request.setValue("text/plain", "content-type");
  request.setValue("application/json", "Content-Type");
  EXPECT_EQ(request.allHTTPHeaderFields, (HTTPHeaderFields{{"Content-Type", "application/json"}}));
}

TEST(URLRequest, AppendsToAFieldThatIsAdded) {
  URLRequest request(URL{"https://host/"});
  request.addValue("one", "Accept");
  request.addValue("two", "accept");
  request.addValue("other", "Authorization");
  EXPECT_EQ(request.allHTTPHeaderFields,
            (HTTPHeaderFields{{"Accept", "one,two"}, {"Authorization", "other"}}));
}

TEST(HTTPURLResponse, FindsItsFieldsWhateverTheirCase) {
  const HTTPURLResponse response(200, {{"Set-Authorization", "token"}});
  EXPECT_EQ(response.allHeaderFields().count("set-authorization"), 1u);
  EXPECT_EQ(response.allHeaderFields().count("SET-AUTHORIZATION"), 1u);
  EXPECT_EQ(response.allHeaderFields().count("set-authorizatio"), 0u);
}

TEST(Error, DescribesItselfInOneLine) {
  EXPECT_EQ((Error{"libcurl", 28, "Timeout was reached"}).description(),
            "Error Domain=libcurl Code=28 \"Timeout was reached\"");
}

}  // namespace
}  // namespace kx
