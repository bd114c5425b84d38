#include "tools/fleet/ScenarioMembers.h"

#include <cstdio>
#include <cstdlib>

namespace kx::fleet {

void refuse(const std::string &place, const std::string &wanted) {
  throw ScenarioError(place + ": " + wanted);
}

std::optional<double> plainNumber(const std::string &text) {
  if (text.empty() || text.find_first_not_of("0123456789.") != std::string::npos) return std::nullopt;
  char *end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  return *end == '\0' ? std::optional<double>(number) : std::nullopt;
}

double numberFrom(const Json &value, const std::string &place, double least, double greatest) {
  const bool isNumber = value.is_number();
  const double number = isNumber ? value.get<double>() : 0;
  if (isNumber && number >= least && number <= greatest) return number;
  char wanted[80];
  std::snprintf(wanted, sizeof wanted, "a number from %.10g to %.10g is wanted here", least, greatest);
  refuse(place, wanted);
}

double secondsFrom(const Json &value, const std::string &place, double (*read)(const std::string &),
                   double greatest) {
  try {
    const double seconds = read(value.is_string() ? value.get<std::string>() : "");
    if (seconds <= greatest) return seconds;
  } catch (const ScenarioError &error) {
    refuse(place, error.what());
  }
  refuse(place, "too long: at most " + std::to_string(static_cast<int>(greatest)) + " s");
}

}  // namespace kx::fleet
