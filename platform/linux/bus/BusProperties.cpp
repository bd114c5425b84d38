#include "platform/linux/bus/BusProperties.h"

#include <cstring>

#include "platform/linux/bus/GLibPointers.h"

namespace kx {

bool BusProperties::areNamedIn(GVariant *parameters) const {
  if (parameters == nullptr || g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sa{sv}as)")) == FALSE) {
    return false;
  }
  const auto isOfInterest = [this](const char *property) {
    for (const char *const *name = names; *name != nullptr; ++name) {
      if (std::strcmp(*name, property) == 0) return true;
    }
    return false;
  };
  const GLibPointer<GVariant> changed(g_variant_get_child_value(parameters, 1));
  const GLibPointer<GVariant> invalidated(g_variant_get_child_value(parameters, 2));
  GVariantIter properties;
  const char *property = nullptr;
  g_variant_iter_init(&properties, changed.get());
  while (g_variant_iter_next(&properties, "{&sv}", &property, nullptr) != FALSE) {
    if (isOfInterest(property)) return true;
  }
  g_variant_iter_init(&properties, invalidated.get());
  while (g_variant_iter_next(&properties, "&s", &property) != FALSE) {
    if (isOfInterest(property)) return true;
  }
  return false;
}

}  // namespace kx
