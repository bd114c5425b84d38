#include "tools/fleet/LoadMessage.h"

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "KXPublisher/KXConstants.h"
#include "KXPublisher/KXPublisher.hpp"
#include "platform/linux/facts/LinuxSystemCalls.h"
#include "tools/fleet/DrawnNumbers.h"
#include "tools/fleet/ScenarioFile.h"

namespace kx::fleet {

namespace {

using Json = nlohmann::ordered_json;

enum : std::uint64_t { forIdentifier = 0x1fa };

constexpr const char *usualText =
    R"({"deviceCategory":"Phone","make":"Apple","model":"PinePhone",)"
    R"("platform":"Linux","osVersion":"Debian GNU/Linux 12","name":"aarch64",)"
    R"("ifa":"","dnt":0,"languages":["de-DE","en"],"carrierCode":"262-01",)"
    R"("radioAccessTechnology":"LTE","lat":52.520008,"lon":13.404954,)"
    R"("horizontalAccuracy":24.5,"altitude":34.2,"verticalAccuracy":6.5,)"
    R"("country":"DE","state":"Berlin","city":"Berlin","zip":"10178",)"
    R"("tzOffset":3600,"connectionType":"CELLULAR","bundleId":"com.example.Host",)"
    R"("asn":"host","sdkName":"KXPublisher iOS","sdkVer":"v1.0",)"
    R"("ips":["10.21.4.7"],"id":"","eventTime":0})";

Value valueOf(const Json &json);

Dictionary dictionaryOf(const Json &json) {
  Dictionary dictionary;
  for (const auto &[key, value] : json.items()) dictionary.set(key, valueOf(value));
  return dictionary;
}

Value valueOf(const Json &json) {
  if (json.is_string()) return json.get<std::string>();
  if (json.is_boolean()) return json.get<bool>();
  if (json.is_number_integer()) return json.get<std::int64_t>();
  if (json.is_number()) return json.get<double>();
  if (json.is_object()) return dictionaryOf(json);
  if (!json.is_array()) throw ScenarioError("no message has a null");
  Array array;
  for (const Json &element : json) array.push_back(valueOf(element));
  return array;
}

}  // namespace

LoadMessage LoadMessage::fromText(const std::string &text) {
  Json json;
  try {
    json = Json::parse(text);
  } catch (const Json::exception &error) {
    throw ScenarioError(std::string("is no JSON: ") + error.what());
  }
  if (json.is_array() && json.size() == 1) json = Json(json.front());
  if (!json.is_object()) throw ScenarioError("one message is wanted here");
  return LoadMessage(dictionaryOf(json));
}

LoadMessage LoadMessage::usual() {
  return fromText(usualText);
}

LoadMessage LoadMessage::fromFile(const std::string &file) {
  std::ostringstream text;
  std::ifstream stream(file, std::ios::binary);
  text << stream.rdbuf();
  if (!stream.is_open() || stream.bad()) throw ScenarioError(file + ": cannot be read");
  try {
    return fromText(text.str());
  } catch (const ScenarioError &error) {
    throw ScenarioError(file + ": " + error.what());
  }
}

Dictionary LoadMessage::of(std::uint64_t seed, std::uint32_t device, const std::string &id) const {
  const double now = LinuxClock().timeIntervalSince1970();
  return with(advertisingIdentifier(seed, device), id, static_cast<std::int64_t>(now) * 1000);
}

Dictionary LoadMessage::with(const std::string &identifier, const std::string &id,
                             std::int64_t eventTime) const {
  Dictionary message = pattern_;
  message.set("ifa", identifier);
  message.set(constants::dataKeyEventId, id);
  message.set(constants::dataKeyEventTime, eventTime);
  return message;
}

std::string LoadMessage::textOf(const char *key) const {
  const Value *const value = pattern_.find(key);
  return value == nullptr || value->text() == nullptr ? "" : *value->text();
}

std::string LoadMessage::advertisingIdentifier(std::uint64_t seed, std::uint32_t device) {
  const std::uint64_t one = drawn(seed, device, 0, forIdentifier);
  const std::uint64_t two = drawn(seed, device, 1, forIdentifier);
  char text[40];
  std::snprintf(text, sizeof text, "%08X-%04X-4%03X-%04X-%012llX", static_cast<unsigned>(one >> 32U),
                static_cast<unsigned>(one >> 16U & 0xffffU), static_cast<unsigned>(one & 0xfffU),
                static_cast<unsigned>((two >> 48U & 0x3fffU) | 0x8000U),
                static_cast<unsigned long long>(two & 0xffffffffffffU));
  return text;
}

std::string LoadMessage::newId() {
  return LinuxProcessInfo().globallyUniqueString();
}

}  // namespace kx::fleet
