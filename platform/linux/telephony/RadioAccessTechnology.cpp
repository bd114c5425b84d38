#include "platform/linux/telephony/RadioAccessTechnology.h"

namespace kx {

namespace {

// MMModemAccessTechnology. What is missing here is no mobile network (POTS, 1 << 0).
constexpr std::uint32_t gsm = 1U << 1;
constexpr std::uint32_t gsmCompact = 1U << 2;
constexpr std::uint32_t gprs = 1U << 3;
constexpr std::uint32_t edge = 1U << 4;
constexpr std::uint32_t umts = 1U << 5;
constexpr std::uint32_t hsdpa = 1U << 6;
constexpr std::uint32_t hsupa = 1U << 7;
constexpr std::uint32_t hspa = 1U << 8;
constexpr std::uint32_t hspaPlus = 1U << 9;
constexpr std::uint32_t cdma1xRTT = 1U << 10;
constexpr std::uint32_t evdo0 = 1U << 11;
constexpr std::uint32_t evdoA = 1U << 12;
constexpr std::uint32_t evdoB = 1U << 13;
constexpr std::uint32_t lte = 1U << 14;
constexpr std::uint32_t nr = 1U << 15;
constexpr std::uint32_t lteCatM = 1U << 16;
constexpr std::uint32_t lteNarrowBand = 1U << 17;
constexpr std::uint32_t any = 0xFFFFFFFF;

struct Named {
  std::uint32_t bits;  ///< any of them
  const char *name;
};

constexpr Named bestFirst[] = {
    {nr, "CTRadioAccessTechnologyNR"},
    {lte | lteCatM | lteNarrowBand, "CTRadioAccessTechnologyLTE"},
    {hspaPlus | hspa | hsupa, "CTRadioAccessTechnologyHSUPA"},
    {hsdpa, "CTRadioAccessTechnologyHSDPA"},
    {umts, "CTRadioAccessTechnologyWCDMA"},
    {evdoB, "CTRadioAccessTechnologyCDMAEVDORevB"},
    {evdoA, "CTRadioAccessTechnologyCDMAEVDORevA"},
    {evdo0, "CTRadioAccessTechnologyCDMAEVDORev0"},
    {edge, "CTRadioAccessTechnologyEdge"},
    {cdma1xRTT, "CTRadioAccessTechnologyCDMA1x"},
    {gprs | gsm | gsmCompact, "CTRadioAccessTechnologyGPRS"},
};

}  // namespace

std::optional<std::string> radioAccessTechnologyOf(std::uint32_t accessTechnologies) {
  if (accessTechnologies == any) return std::nullopt;
  if ((accessTechnologies & nr) != 0 && (accessTechnologies & lte) != 0) {
    return "CTRadioAccessTechnologyNRNSA";
  }
  for (const Named &technology : bestFirst) {
    if ((accessTechnologies & technology.bits) != 0) return technology.name;
  }
  return std::nullopt;
}

}  // namespace kx
