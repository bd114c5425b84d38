#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kx {

/// The best of the technologies in `accessTechnologies`, ModemManager's bits `MMModemAccessTechnology`, by
/// its Core Telephony name: "CTRadioAccessTechnologyLTE". Absent when none is known: no bit, none that stands
/// for a mobile network, or all of them, which ModemManager calls "any".
///
/// An LTE cell that has a 5G cell beside it shows both bits, and is NRNSA. HSPA and HSPA+ are HSDPA and HSUPA
/// together and bear the name of the better of the two; LTE for things (Cat-M, NB-IoT) is LTE; GSM that does
/// not say more is at least GPRS.
std::optional<std::string> radioAccessTechnologyOf(std::uint32_t accessTechnologies);

}  // namespace kx
