#include <ModemManager.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/linux/telephony/RadioAccessTechnology.h"

namespace kx {
namespace {

std::string nameOf(std::uint32_t accessTechnologies) {
  return radioAccessTechnologyOf(accessTechnologies).value_or("absent");
}

TEST(RadioAccessTechnologyTest, NamesEachTechnology) {
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_GSM), "CTRadioAccessTechnologyGPRS");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_GSM_COMPACT), "CTRadioAccessTechnologyGPRS");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_GPRS), "CTRadioAccessTechnologyGPRS");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_EDGE), "CTRadioAccessTechnologyEdge");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_UMTS), "CTRadioAccessTechnologyWCDMA");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_HSDPA), "CTRadioAccessTechnologyHSDPA");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_HSUPA), "CTRadioAccessTechnologyHSUPA");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_HSPA), "CTRadioAccessTechnologyHSUPA");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_HSPA_PLUS), "CTRadioAccessTechnologyHSUPA");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_1XRTT), "CTRadioAccessTechnologyCDMA1x");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_EVDO0), "CTRadioAccessTechnologyCDMAEVDORev0");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_EVDOA), "CTRadioAccessTechnologyCDMAEVDORevA");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_EVDOB), "CTRadioAccessTechnologyCDMAEVDORevB");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_LTE), "CTRadioAccessTechnologyLTE");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_LTE_CAT_M), "CTRadioAccessTechnologyLTE");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_LTE_NB_IOT), "CTRadioAccessTechnologyLTE");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_5GNR), "CTRadioAccessTechnologyNR");
}

TEST(RadioAccessTechnologyTest, OfSeveralTheBestWins) {
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_GPRS | MM_MODEM_ACCESS_TECHNOLOGY_EDGE),
            "CTRadioAccessTechnologyEdge");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_UMTS | MM_MODEM_ACCESS_TECHNOLOGY_HSDPA),
            "CTRadioAccessTechnologyHSDPA");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_UMTS | MM_MODEM_ACCESS_TECHNOLOGY_HSDPA |
                   MM_MODEM_ACCESS_TECHNOLOGY_HSUPA),
            "CTRadioAccessTechnologyHSUPA");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_1XRTT | MM_MODEM_ACCESS_TECHNOLOGY_EVDO0 |
                   MM_MODEM_ACCESS_TECHNOLOGY_EVDOA),
            "CTRadioAccessTechnologyCDMAEVDORevA");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_HSPA_PLUS | MM_MODEM_ACCESS_TECHNOLOGY_LTE),
            "CTRadioAccessTechnologyLTE");
}

TEST(RadioAccessTechnologyTest, FiveGBesideLTEIsNonStandalone) {
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_LTE | MM_MODEM_ACCESS_TECHNOLOGY_5GNR),
            "CTRadioAccessTechnologyNRNSA");
}

TEST(RadioAccessTechnologyTest, IsAbsentWhenUnknown) {
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_UNKNOWN), "absent");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_POTS), "absent");
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_ANY), "absent");
  EXPECT_EQ(nameOf(1U << 18), "absent") << "a technology of later days";
  EXPECT_EQ(nameOf(1U << 31), "absent");
}

TEST(RadioAccessTechnologyTest, AnUnknownBitDoesNotHideAKnownOne) {
  EXPECT_EQ(nameOf(MM_MODEM_ACCESS_TECHNOLOGY_LTE | 1U << 18), "CTRadioAccessTechnologyLTE");
}

}  // namespace
}  // namespace kx
