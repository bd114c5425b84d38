#include "tools/collector/DocumentRules.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tools/collector/Refusal.h"

namespace kx::collector {

namespace {

enum class Presence { required, optional };

/// What one key of an object has to be.
struct Rule {
  std::string_view key;
  Presence presence;
  bool (*holds)(const JSONValue &value);
  const char *expected;
};

bool isText(const JSONValue &value) {
  return value.isText();
}
bool isFilledText(const JSONValue &value) {
  return value.isText() && !value.text.empty();
}
bool isNumber(const JSONValue &value) {
  return value.isNumber();
}
bool isInteger(const JSONValue &value) {
  return value.isInteger();
}
bool isObject(const JSONValue &value) {
  return value.type == JSONValue::Type::object;
}
bool isArrayOfTexts(const JSONValue &value) {
  return value.type == JSONValue::Type::array && std::all_of(value.begin(), value.end(), isText);
}
bool isFilledArrayOfTexts(const JSONValue &value) {
  return isArrayOfTexts(value) && value.size != 0;
}
bool isArrayOfOneText(const JSONValue &value) {
  return isArrayOfTexts(value) && value.size == 1;
}
bool isZeroOrOne(const JSONValue &value) {
  return value.isInteger() && (value.signedInteger() == 0 || value.signedInteger() == 1);
}
bool isConnectionType(const JSONValue &value) {
  return value.isText() && (value.text == "WIFI" || value.text == "CELLULAR");
}
bool isWholeSeconds(const JSONValue &value) {
  // Milliseconds in a signed 64-bit integer; every number that is not negative is read as an unsigned one.
  return value.isInteger() && value.fitsInteger() && value.signedInteger() % 1000 == 0;
}
bool isAdvertisingIdentifier(const JSONValue &value) {
  return isFilledText(value) && value.text != "00000000-0000-0000-0000-000000000000";
}

const std::vector<Rule> documentRules = {
    {"header", Presence::required, isObject, "an object"},
    {"payload", Presence::required, isObject, "an object"},
};

const std::vector<Rule> headerRules = {
    {"typ", Presence::required, [](const JSONValue &value) { return value.isText() && value.text == "JWT"; },
     R"("JWT")"},
    {"alg", Presence::required,
     [](const JSONValue &value) { return value.isText() && value.text == "HS256"; }, R"("HS256")"},
};

const std::vector<Rule> payloadRules = {
    {"aud", Presence::required, isArrayOfOneText, "an array of one text"},
    {"iss", Presence::required, isFilledText, "a text that is not empty"},
    {"sub", Presence::required, isFilledText, "a text that is not empty"},
    {"name", Presence::required, isText, "a text"},
};

const std::vector<Rule> messageRules = {
    // The library itself.
    {"sdkName", Presence::required, isFilledText, "a text that is not empty"},
    {"sdkVer", Presence::required, isFilledText, "a text that is not empty"},
    {"ips", Presence::required, isArrayOfTexts, "an array of texts"},
    {"id", Presence::required, isFilledText, "a text that is not empty"},
    {"eventTime", Presence::required, isWholeSeconds, "an integer, a multiple of 1000"},
    // The device.
    {"deviceCategory", Presence::optional, isText, "a text"},
    {"make", Presence::optional, isText, "a text"},
    {"model", Presence::optional, isText, "a text"},
    {"platform", Presence::optional, isText, "a text"},
    {"osVersion", Presence::optional, isText, "a text"},
    {"name", Presence::optional, isText, "a text"},
    {"userAgent", Presence::optional, isText, "a text"},
    {"ifa", Presence::required, isAdvertisingIdentifier, "a text that is not empty and not all zeros"},
    {"dnt", Presence::optional, isZeroOrOne, "0 or 1"},
    {"languages", Presence::optional, isFilledArrayOfTexts, "an array of at least one text"},
    // The mobile network subscription. The operator's name is never sent.
    {"carrierCode", Presence::optional, isText, "a text"},
    {"radioAccessTechnology", Presence::optional, isText, "a text"},
    // The location.
    {"lat", Presence::optional, isNumber, "a number"},
    {"lon", Presence::optional, isNumber, "a number"},
    {"horizontalAccuracy", Presence::optional, isNumber, "a number"},
    {"altitude", Presence::optional, isNumber, "a number"},
    {"verticalAccuracy", Presence::optional, isNumber, "a number"},
    {"country", Presence::optional, isText, "a text"},
    {"state", Presence::optional, isText, "a text"},
    {"city", Presence::optional, isText, "a text"},
    {"zip", Presence::optional, isText, "a text"},
    {"tzOffset", Presence::optional, isInteger, "an integer"},
    // The connection.
    {"connectionType", Presence::optional, isConnectionType, R"("WIFI" or "CELLULAR")"},
    // The host application.
    {"bundleId", Presence::optional, isText, "a text"},
    {"asn", Presence::optional, isText, "a text"},
};

[[noreturn]] void refuse(const std::string &reason, Subject subject = {}) {
  throw Refusal(400, reason, std::move(subject));
}

const Rule *ruleFor(const std::string &key, const std::vector<Rule> &rules) {
  const auto rule = std::find_if(rules.begin(), rules.end(),
                                 [&key](const Rule &candidate) { return key == candidate.key; });
  return rule == rules.end() ? nullptr : &*rule;
}

/// Enough to tell the few keys apart, in less time than looking at all of each.
struct KeyHash {
  std::size_t operator()(std::string_view key) const {
    if (key.empty()) return 0;
    return key.size() + std::size_t{31} * static_cast<unsigned char>(key.front()) +
           std::size_t{997} * static_cast<unsigned char>(key.back());
  }
};

/// A key of a later library may hold anything that fits into a flat object.
bool isAllowedWithoutRule(const std::string &key, const Document &value) {
  return key != "carrierName" && !value.is_null() && !value.is_object();
}

/// Every key known, unless others are allowed, of its type, and present if required. `outer` is the object's
/// own key.
void checkObject(const Document &object, const std::vector<Rule> &rules, const std::string &outer = "",
                 bool areOthersAllowed = false) {
  const std::string path = outer.empty() ? "" : outer + ".";
  for (const auto &[key, value] : object.items()) {
    const Rule *const rule = ruleFor(key, rules);
    if (rule == nullptr) {
      if (areOthersAllowed && isAllowedWithoutRule(key, value)) continue;
      refuse("unknown key " + quote(path + key), {Subject::Part::key, {}, outer, key});
    }
    ArrayElements elements;
    if (!rule->holds(valueOf(value, elements))) {
      refuse(quote(path + key) + " must be " + rule->expected + " and is " + printable(value),
             {Subject::Part::value, {}, outer, key});
    }
  }
  for (const Rule &rule : rules) {
    if (rule.presence == Presence::required && !object.contains(rule.key)) {
      refuse("the key " + quote(path + std::string(rule.key)) + " is missing");
    }
  }
}

}  // namespace

void checkLoginDocument(const Document &document) {
  if (!document.is_object()) refuse("the login document must be an object");
  checkObject(document, documentRules);
  checkObject(document["header"], headerRules, "header");
  const Document &payload = document["payload"];
  checkObject(payload, payloadRules, "payload");
  if (payload["aud"][0] != payload["iss"]) {
    refuse(R"("payload.aud" must hold the text of "payload.iss", )" + printable(payload["iss"]) +
               ", and holds " + printable(payload["aud"][0]),
           {Subject::Part::value, {}, "payload", "aud"});
  }
}

void checkMessageDocument(const Document &document) {
  if (!document.is_array()) refuse("the message must come in an array");
  if (document.size() != 1) {
    refuse("the array must hold exactly one message and holds " + std::to_string(document.size()));
  }
  if (!document[0].is_object()) refuse("the message must be an object");
  checkObject(document[0], messageRules, "", /*areOthersAllowed=*/true);
}

std::optional<std::size_t> messageRule(std::string_view key) {
  static const auto numbers = [] {
    std::unordered_map<std::string_view, std::size_t, KeyHash> byKeys;
    for (const Rule &rule : messageRules) byKeys.emplace(rule.key, byKeys.size());
    return byKeys;
  }();
  const auto found = numbers.find(key);
  if (found == numbers.end()) return std::nullopt;
  return found->second;
}

std::size_t messageRuleCount() {
  return messageRules.size();
}

bool keepsMessageRule(std::size_t number, const JSONValue &value) {
  const Rule &rule = messageRules[number];
  return value ? rule.holds(value) : rule.presence == Presence::optional;
}

}  // namespace kx::collector
