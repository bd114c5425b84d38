#include "tools/collector/Warnings.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "tools/collector/DocumentRules.h"

namespace kx::collector {

namespace {

using Texts = std::vector<std::string>;
using std::chrono::minutes;
using std::chrono::system_clock;

// Messages are sent when they are made, and not kept for later.
constexpr minutes usualDifference{60};

bool isHexadecimal(char character) {
  return std::isxdigit(static_cast<unsigned char>(character)) != 0;
}

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

/// "6D92078A-8246-4BA4-AE5B-76104861E7DC"
bool isUUID(std::string_view text) {
  if (text.size() != 36) return false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isHyphen = at == 8 || at == 13 || at == 18 || at == 23;
    if (isHyphen ? text[at] != '-' : !isHexadecimal(text[at])) return false;
  }
  return true;
}

/// "262-01"
bool isCarrierCode(std::string_view text) {
  return (text.size() == 6 || text.size() == 7) && text[3] == '-' &&
         std::all_of(text.begin(), text.begin() + 3, isDigit) &&
         std::all_of(text.begin() + 4, text.end(), isDigit);
}

bool isCountryCode(std::string_view text) {
  const auto isCapital = [](char character) { return character >= 'A' && character <= 'Z'; };
  return text.size() == 2 && std::all_of(text.begin(), text.end(), isCapital);
}

bool isIPv4Address(const std::string &text) {
  in_addr address{};
  return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

void checkText(const MessageValues &message, std::string_view key, bool (*isUsual)(std::string_view),
               const char *usual, Texts &warnings) {
  const JSONValue &value = message[key];
  if (!value.isText() || isUsual(value.text)) return;
  warnings.push_back(quote(key) + " is not " + usual + ": " + printable(value));
}

void checkRange(const MessageValues &message, std::string_view key, double minimum, double maximum,
                Texts &warnings) {
  const JSONValue &value = message[key];
  if (!value.isNumber() || (value.number() >= minimum && value.number() <= maximum)) return;
  warnings.push_back(quote(key) + " is beyond what there is: " + printable(value));
}

void checkPosition(const MessageValues &message, Texts &warnings) {
  checkRange(message, "lat", -90, 90, warnings);
  checkRange(message, "lon", -180, 180, warnings);
  checkRange(message, "horizontalAccuracy", 0, 20037508, warnings);  // half way around the Earth
  checkRange(message, "altitude", -12000, 100000, warnings);
  checkRange(message, "tzOffset", -12 * 3600, 14 * 3600, warnings);
  const JSONValue &latitude = message["lat"];
  const JSONValue &longitude = message["lon"];
  if (latitude.isNumber() != longitude.isNumber()) {
    warnings.emplace_back(R"("lat" and "lon" do not come together)");
  } else if (latitude.isNumber() && std::abs(latitude.number()) + std::abs(longitude.number()) < 1e-6) {
    warnings.emplace_back("the position is 0, 0, in the Gulf of Guinea");
  }
}

void checkAddresses(const MessageValues &message, Texts &warnings) {
  for (const JSONValue &address : message["ips"]) {
    if (address.isText() && isIPv4Address(std::string(address.text))) continue;
    warnings.push_back("\"ips\" has what is no IPv4 address: " + printable(address));
    return;
  }
}

void checkTime(const MessageValues &message, system_clock::time_point now, Texts &warnings) {
  const JSONValue &time = message["eventTime"];
  if (!time.isInteger()) return;
  const auto arrival = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
  // The difference of the two might not fit into an integer.
  const double milliseconds = time.number() - static_cast<double>(arrival);
  const double difference = std::round(milliseconds / 60000);
  if (std::abs(difference) < static_cast<double>(usualDifference.count())) return;
  const std::string hours = std::to_string(static_cast<std::int64_t>(std::abs(difference) / 60));
  warnings.push_back("\"eventTime\" is " + hours + " h " + (difference < 0 ? "before" : "after") +
                     " this machine's time");
}

void bound(Texts &warnings) {
  constexpr std::size_t maximumWarnings = 20;
  if (warnings.size() <= maximumWarnings) return;
  warnings.resize(maximumWarnings);
  warnings.emplace_back("and more");
}

}  // namespace

std::vector<std::string> Warnings::about(const Document &message, system_clock::time_point now) const {
  Texts warnings;
  for (const auto &[key, value] : message.items()) {
    if (!messageRule(key)) warnings.push_back("the key " + quote(key) + " is not in the message reference");
  }
  for (std::string &warning : about(MessageValues(message), now)) warnings.push_back(std::move(warning));
  bound(warnings);
  return warnings;
}

std::vector<std::string> Warnings::about(const MessageValues &message, system_clock::time_point now) const {
  Texts warnings;
  checkText(message, "id", isUUID, "a UUID", warnings);
  checkText(message, "ifa", isUUID, "a UUID", warnings);
  if (const JSONValue &id = message["id"]; id.isText() && isKnown_.count(std::string(id.text)) != 0) {
    warnings.push_back("a message with the \"id\" " + quote(id.text) + " has come before");
  }
  checkTime(message, now, warnings);
  checkPosition(message, warnings);
  checkText(message, "country", isCountryCode, "a code of two letters", warnings);
  checkText(message, "carrierCode", isCarrierCode, "two codes with a hyphen, like 262-01", warnings);
  checkAddresses(message, warnings);
  return warnings;
}

void Warnings::remember(const std::string &eventId) {
  if (!isKnown_.insert(eventId).second) return;
  ids_.push_back(eventId);
  if (ids_.size() <= maximumIds) return;
  isKnown_.erase(ids_.front());
  ids_.pop_front();
}

}  // namespace kx::collector
