#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "KXPublisher/platform/foundation/StringFormat.h"

namespace kx {
namespace {

class Named : public Object {
 public:
  std::string description() const override { return "a named object"; }
};

TEST(StringFormat, FillsObjectPlaceholders) {
  const Named named;
  EXPECT_EQ(stringWithFormat("[KX %@] %@", {"Error", "text"}), "[KX Error] text");
  EXPECT_EQ(stringWithFormat("%@", {&named}), "a named object");
  EXPECT_EQ(stringWithFormat("%@", {Value(Array{1, "two"})}), "[1,\"two\"]");
  EXPECT_EQ(stringWithFormat("%@", {Dictionary{{"key", 1}}}), "{\"key\":1}");
}

TEST(StringFormat, PrintsWhatIsAbsentAsNull) {
  EXPECT_EQ(stringWithFormat("%s %@ %@", {static_cast<const char *>(nullptr), std::optional<std::string>(),
                                          static_cast<const Object *>(nullptr)}),
            "(null) (null) (null)");
}

TEST(StringFormat, PrintsIntegersOfEverySizeAndSign) {
  EXPECT_EQ(stringWithFormat("%lu %ld %d", {500, -2L, std::numeric_limits<std::int64_t>::min()}),
            "500 -2 -9223372036854775808");
  EXPECT_EQ(stringWithFormat("%llu", {std::numeric_limits<std::uint64_t>::max()}), "18446744073709551615");
  EXPECT_EQ(stringWithFormat("%@", {std::numeric_limits<std::uint64_t>::max()}), "18446744073709551615");
  EXPECT_EQ(stringWithFormat("%@", {std::numeric_limits<std::int64_t>::min()}), "-9223372036854775808");
  EXPECT_EQ(stringWithFormat("%08lx|%-4d|%+d", {255, 7, 7}), "000000ff|7   |+7");
}

TEST(StringFormat, PrintsNumbers) {
  EXPECT_EQ(stringWithFormat("%.2f %g", {1.005, 0.5}), "1.00 0.5");
  EXPECT_EQ(stringWithFormat("%@", {600.0}), "600");
  EXPECT_EQ(stringWithFormat("%.1f", {std::numeric_limits<double>::max()}).size(), 311u);
}

TEST(StringFormat, PrintsAnArgumentAsItIsWhereThePlaceholderIsOfAnotherKind) {
  EXPECT_EQ(stringWithFormat("%d %s %f", {"text", 5, 7}), "text 5 7");
}

TEST(StringFormat, KeepsPlaceholdersWithoutArguments) {
  EXPECT_EQ(stringWithFormat("%@ and %lu", {1}), "1 and %lu");
  EXPECT_EQ(stringWithFormat("100%", {1}), "100%");
  EXPECT_EQ(stringWithFormat("%-08", {1}), "%-08");
}

TEST(StringFormat, LeavesOutArgumentsWithoutPlaceholders) {
  EXPECT_EQ(stringWithFormat("text", {1, 2}), "text");
}

TEST(StringFormat, PrintsAPercentSignForTwo) {
  EXPECT_EQ(stringWithFormat("%d%%", {50}), "50%");
}

TEST(StringFormat, DoesNotReadPlaceholdersInArguments) {
  EXPECT_EQ(stringWithFormat("%@ %@", {"%@", "%n"}), "%@ %n");
}

}  // namespace
}  // namespace kx
