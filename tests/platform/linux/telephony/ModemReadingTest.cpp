#include <ModemManager.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/linux/bus/GLibPointers.h"
#include "platform/linux/telephony/ModemReading.h"

namespace kx {
namespace {

GLibPointer<GVariant> parsed(const std::string &text) {
  GError *error = nullptr;
  GLibPointer<GVariant> value(g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, &error));
  const GLibPointer<GError> reason(error);
  EXPECT_NE(value, nullptr) << reason->message;
  return value;
}

/// One modem's entry in the answer to `GetManagedObjects`.
std::string modem(int number, const std::string &properties) {
  return "objectpath '/org/freedesktop/ModemManager1/Modem/" + std::to_string(number) +
         "': {'org.freedesktop.ModemManager1.Modem': @a{sv} {" + properties + "}}";
}

std::string properties(const std::string &sim, MMModemState state) {
  return "'Sim': <objectpath '" + sim + "'>, 'State': <int32 " + std::to_string(state) + ">";
}

/// The chosen modem's number in its path; empty when none is chosen.
std::string chosen(const std::vector<std::string> &entries) {
  std::string dictionary;
  for (const std::string &entry : entries) dictionary += (dictionary.empty() ? "" : ", ") + entry;
  const auto found = modemOf(parsed("(@a{oa{sa{sv}}} {" + dictionary + "},)").get());
  return found ? found->path.substr(found->path.rfind('/') + 1) : "";
}

// ---- The operator's code

std::string codeOf(std::string_view operatorIdentifier) {
  const auto found = homeOperatorOf(operatorIdentifier);
  return found ? found->countryCode + "-" + found->networkCode : "absent";
}

TEST(ModemReadingTest, TheOperatorIsThreeDigitsAndThenTwoOrThree) {
  EXPECT_EQ(codeOf("26201"), "262-01");
  EXPECT_EQ(codeOf("310410"), "310-410");
  EXPECT_EQ(codeOf("00101"), "001-01");
}

TEST(ModemReadingTest, AnythingElseIsNoOperator) {
  for (const char *const nonsense :
       {"", "2", "262", "2620", "3104100", "262-01", " 26201", "26201 ", "2620A", "+26201", "26201\n",
        "-2620", "twentysix", "\xD9\xA2\xD9\xA6\xD9\xA2", "\xEF\xBC\x92\xEF\xBC\x96"}) {
    EXPECT_EQ(codeOf(nonsense), "absent") << nonsense;
  }
  EXPECT_EQ(codeOf(std::string_view("2620\0", 5)), "absent");
  EXPECT_EQ(codeOf(std::string(100'000, '1')), "absent");
}

// ---- Which modem it is

const std::string sim = "/org/freedesktop/ModemManager1/SIM/0";
const std::string withSim = properties(sim, MM_MODEM_STATE_REGISTERED);
const std::string withSearchingSim = properties(sim, MM_MODEM_STATE_SEARCHING);
const std::string withoutSim = properties("/", MM_MODEM_STATE_REGISTERED);
const std::string searchingWithoutSim = properties("/", MM_MODEM_STATE_SEARCHING);

TEST(ModemReadingTest, WithoutModemsNoneIsChosen) {
  EXPECT_EQ(chosen({}), "");
  EXPECT_EQ(chosen({"objectpath '/org/freedesktop/ModemManager1/Modem/0': "
                    "{'org.freedesktop.ModemManager1.Modem.Voice': @a{sv} {}}"}),
            "");
}

TEST(ModemReadingTest, AModemWithASimGoesBeforeOneWithout) {
  EXPECT_EQ(chosen({modem(0, withoutSim), modem(1, withSearchingSim)}), "1");
  EXPECT_EQ(chosen({modem(0, withSearchingSim), modem(1, withoutSim)}), "0");
}

TEST(ModemReadingTest, OfThoseWithASimARegisteredOneGoesFirst) {
  EXPECT_EQ(chosen({modem(0, withSearchingSim), modem(1, withSim)}), "1");
  EXPECT_EQ(chosen({modem(1, withSim), modem(0, withSearchingSim)}), "1");
  EXPECT_EQ(chosen({modem(0, searchingWithoutSim), modem(1, withoutSim)}), "1");
}

TEST(ModemReadingTest, AConnectedModemIsARegisteredOne) {
  EXPECT_EQ(chosen({modem(0, withSim), modem(1, properties(sim, MM_MODEM_STATE_CONNECTED))}), "0");
  EXPECT_EQ(chosen({modem(0, properties(sim, MM_MODEM_STATE_CONNECTED)), modem(1, withSim)}), "0");
}

TEST(ModemReadingTest, AmongEqualsTheFirstThatWasFoundIsChosenInWhateverOrderTheyAreTold) {
  EXPECT_EQ(chosen({modem(10, withSim), modem(9, withSim), modem(11, withSim)}), "9");
  EXPECT_EQ(chosen({modem(11, withSim), modem(10, withSim)}), "10");
}

// ---- What it tells

std::string technologyOf(const std::string &modemProperties) {
  const auto found = modemOf(parsed("({" + modem(0, modemProperties) + "},)").get());
  return found ? radioAccessTechnologyOf(*found).value_or("absent") : "no modem";
}

TEST(ModemReadingTest, AModemHasATechnologyOnlyWhileItIsRegistered) {
  const auto inState = [](int state) {
    return technologyOf("'AccessTechnologies': <uint32 16384>, 'State': <int32 " + std::to_string(state) +
                        ">");
  };
  for (int state = MM_MODEM_STATE_FAILED; state < MM_MODEM_STATE_REGISTERED; ++state) {
    EXPECT_EQ(inState(state), "absent") << state;
  }
  for (int state = MM_MODEM_STATE_REGISTERED; state <= MM_MODEM_STATE_CONNECTED; ++state) {
    EXPECT_EQ(inState(state), "CTRadioAccessTechnologyLTE") << state;
  }
}

TEST(ModemReadingTest, AValueOfAWrongTypeCountsAsAbsent) {
  EXPECT_EQ(technologyOf("'AccessTechnologies': <'lte'>, 'State': <int32 8>"), "absent");
  EXPECT_EQ(technologyOf("'AccessTechnologies': <int32 16384>, 'State': <int32 8>"), "absent");
  EXPECT_EQ(technologyOf("'AccessTechnologies': <uint32 16384>, 'State': <uint32 8>"), "absent");
  EXPECT_EQ(technologyOf("'AccessTechnologies': <uint32 16384>, 'State': <@ai []>"), "absent");
  EXPECT_EQ(technologyOf("'AccessTechnologies': <uint32 16384>"), "absent");
  EXPECT_EQ(technologyOf(""), "absent");
  for (const char *const wrong :
       {"'Sim': <'/org/freedesktop/ModemManager1/SIM/0'>", "'Sim': <uint32 0>", ""}) {
    const auto found = modemOf(parsed("({" + modem(0, wrong) + "},)").get());
    ASSERT_TRUE(found);
    EXPECT_EQ(found->simPath, "") << wrong;
  }
}

}  // namespace
}  // namespace kx
