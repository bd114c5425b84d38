#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "platform/linux/bus/BusProperties.h"
#include "platform/linux/bus/GLibPointers.h"

namespace kx {
namespace {

constexpr BusProperties properties{"org.example.Modem", {"Sim", "State"}};

bool areNamedIn(const std::string &parameters) {
  const GLibPointer<GVariant> parsed(g_variant_parse(nullptr, parameters.c_str(), nullptr, nullptr, nullptr));
  if (parsed == nullptr) throw std::invalid_argument("not a value: " + parameters);
  return properties.areNamedIn(parsed.get());
}

TEST(BusProperties, AreNamedAmongThoseThatHaveChanged) {
  EXPECT_TRUE(areNamedIn("('i', {'Sim': <objectpath '/'>}, @as [])"));
  EXPECT_TRUE(areNamedIn("('i', {'SignalQuality': <(uint32 1, true)>, 'State': <8>}, @as [])"));
}

TEST(BusProperties, AreNamedAmongThoseThatAreNoLongerTrue) {
  EXPECT_TRUE(areNamedIn("('i', @a{sv} {}, ['Bearers', 'Sim'])"));
}

TEST(BusProperties, AreNotNamedWhereOnlyOthersAre) {
  EXPECT_FALSE(areNamedIn("('i', {'SignalQuality': <(uint32 1, true)>}, @as [])"));
  EXPECT_FALSE(areNamedIn("('i', {'Si': <1>, 'Simulated': <2>, '': <3>}, ['Bearers', 'States'])"));
  EXPECT_FALSE(areNamedIn("('Sim', @a{sv} {}, @as [])"));
}

TEST(BusProperties, AreNotNamedInWhatIsNoNewsOfProperties) {
  EXPECT_FALSE(areNamedIn("('Sim',)"));
  EXPECT_FALSE(areNamedIn("('i', {'Sim': 'a'}, @as [])"));
  EXPECT_FALSE(areNamedIn("('i', @a{sv} {}, 'Sim')"));
  EXPECT_FALSE(areNamedIn("'Sim'"));
  EXPECT_FALSE(properties.areNamedIn(nullptr));
}

}  // namespace
}  // namespace kx
