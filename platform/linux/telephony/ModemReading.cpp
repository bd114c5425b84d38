#include "platform/linux/telephony/ModemReading.h"

#include <algorithm>
#include <tuple>

#include "platform/linux/bus/GLibPointers.h"
#include "platform/linux/telephony/RadioAccessTechnology.h"

namespace kx {

namespace {

constexpr const char *modemInterface = "org.freedesktop.ModemManager1.Modem";
constexpr std::int32_t registered = 8;  // MM_MODEM_STATE_REGISTERED; the states beyond it are of a connection
constexpr std::string_view noObject = "/";

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

Modem modemWith(const char *path, GVariant *properties) {
  Modem modem;
  modem.path = path;
  const char *simPath = nullptr;
  if (g_variant_lookup(properties, "Sim", "&o", &simPath) != FALSE && simPath != noObject) {
    modem.simPath = simPath;
  }
  std::int32_t state = 0;
  modem.isRegistered = g_variant_lookup(properties, "State", "i", &state) != FALSE && state >= registered;
  g_variant_lookup(properties, "AccessTechnologies", "u", &modem.accessTechnologies);
  return modem;
}

/// The first in this order is the one that is chosen.
auto rank(const Modem &modem) {
  // The paths differ in a decimal number at their end: of two the shorter one has the lower number.
  return std::make_tuple(modem.simPath.empty(), !modem.isRegistered, modem.path.size(),
                         std::string_view(modem.path));
}

}  // namespace

std::optional<HomeOperator> homeOperatorOf(std::string_view operatorIdentifier) {
  constexpr std::size_t countryDigits = 3;
  if (operatorIdentifier.size() != countryDigits + 2 && operatorIdentifier.size() != countryDigits + 3) {
    return std::nullopt;
  }
  if (!std::all_of(operatorIdentifier.begin(), operatorIdentifier.end(), &isDigit)) return std::nullopt;
  return HomeOperator{std::string(operatorIdentifier.substr(0, countryDigits)),
                      std::string(operatorIdentifier.substr(countryDigits))};
}

std::optional<HomeOperator> homeOperatorIn(GVariant *operatorIdentifier) {
  GVariant *boxed = nullptr;
  g_variant_get(operatorIdentifier, "(v)", &boxed);
  const GLibPointer<GVariant> text(boxed);
  const bool isText = g_variant_is_of_type(boxed, G_VARIANT_TYPE_STRING) != FALSE;
  return isText ? homeOperatorOf(g_variant_get_string(boxed, nullptr)) : std::nullopt;
}

std::optional<Modem> modemOf(GVariant *managedObjects) {
  std::optional<Modem> chosen;
  GVariantIter *objects = nullptr;
  const char *path = nullptr;
  GVariant *interfaces = nullptr;
  g_variant_get(managedObjects, "(a{oa{sa{sv}}})", &objects);
  while (g_variant_iter_loop(objects, "{&o@a{sa{sv}}}", &path, &interfaces) != FALSE) {
    const GLibPointer<GVariant> properties(
        g_variant_lookup_value(interfaces, modemInterface, G_VARIANT_TYPE_VARDICT));
    if (properties == nullptr) continue;
    const Modem modem = modemWith(path, properties.get());
    if (!chosen || rank(modem) < rank(*chosen)) chosen = modem;
  }
  g_variant_iter_free(objects);
  return chosen;
}

std::optional<std::string> radioAccessTechnologyOf(const Modem &modem) {
  return modem.isRegistered ? radioAccessTechnologyOf(modem.accessTechnologies) : std::nullopt;
}

}  // namespace kx
