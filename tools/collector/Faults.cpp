#include "tools/collector/Faults.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include "tools/collector/Refusal.h"

namespace kx::collector {

namespace {

constexpr std::array<std::string_view, 3> endpointNames = {"any", "login", "message"};
constexpr std::array<std::string_view, 6> actionNames = {"status", "delay",  "drop",
                                                         "stall",  "expire", "refuse"};
constexpr double maximumSecondsOfFault = 3600;
constexpr std::int64_t maximumCount = 1000000;
constexpr std::size_t maximumTextSize = 2000;
constexpr std::size_t maximumFaults = 100;

[[noreturn]] void refuseFault(const std::string &reason) {
  throw Refusal(400, reason);
}

bool isUsedUp(const Fault &fault) {
  return fault.count && fault.done >= *fault.count;
}

template <std::size_t size>
std::size_t choice(const Document &value, const char *key, const std::array<std::string_view, size> &names) {
  if (value.is_string()) {
    const auto found = std::find(names.begin(), names.end(), value.get_ref<const std::string &>());
    if (found != names.end()) return static_cast<std::size_t>(found - names.begin());
  }
  std::string rule;
  for (const std::string_view name : names) rule += (rule.empty() ? "" : " or ") + quote(name);
  refuseFault(quote(key) + " must be " + rule + ", not " + printable(value));
}

std::string textOf(const Document &value, const char *key) {
  if (value.is_string()) {
    const auto &text = value.get_ref<const std::string &>();
    // Part of it goes into a header field.
    const bool isPlain = std::all_of(text.begin(), text.end(), [](char character) {
      return static_cast<unsigned char>(character) >= 0x20 && character != 0x7F;
    });
    if (!text.empty() && text.size() <= maximumTextSize && isPlain) return text;
  }
  refuseFault(quote(key) + " must be a text without control characters, not " + printable(value));
}

std::int64_t integerOf(const Document &value, const char *key, std::int64_t minimum, std::int64_t maximum) {
  if (value.is_number_integer() && value >= minimum && value <= maximum) return value.get<std::int64_t>();
  refuseFault(quote(key) + " must be an integer from " + std::to_string(minimum) + " to " +
              std::to_string(maximum) + ", not " + printable(value));
}

std::chrono::milliseconds timeOf(const Document &value) {
  if (value.is_number()) {
    const double seconds = value.get<double>();
    if (seconds > 0 && seconds <= maximumSecondsOfFault) {
      return std::chrono::milliseconds(static_cast<std::int64_t>(std::ceil(seconds * 1000)));
    }
  }
  refuseFault("\"seconds\" must be a number, more than 0 and at most 3600, not " + printable(value));
}

void set(Fault &fault, const std::string &key, const Document &value) {
  if (key == "endpoint") {
    fault.endpoint = static_cast<Fault::Endpoint>(choice(value, "endpoint", endpointNames));
  } else if (key == "action") {
    fault.action = static_cast<Fault::Action>(choice(value, "action", actionNames));
  } else if (value.is_null() && (key == "device" || key == "location" || key == "count" || key == "status" ||
                                 key == "seconds")) {
    return;
  } else if (key == "device") {
    fault.device = textOf(value, "device");
  } else if (key == "location") {
    fault.location = textOf(value, "location");
  } else if (key == "status") {
    fault.status = static_cast<unsigned>(integerOf(value, "status", 200, 599));
  } else if (key == "seconds") {
    fault.time = timeOf(value);
  } else if (key == "count") {
    fault.count = static_cast<std::uint64_t>(integerOf(value, "count", 1, maximumCount));
  } else {
    refuseFault("a fault has no " + quote(key));
  }
}

/// What one part of it says against another.
void checkParts(const Fault &fault) {
  const bool hasStatus = fault.action == Fault::Action::status;
  const bool hasTime = fault.action == Fault::Action::delay || fault.action == Fault::Action::stall;
  const std::string name(actionNames[static_cast<std::size_t>(fault.action)]);
  if (hasStatus != (fault.status != 0)) {
    refuseFault(hasStatus ? R"(the action "status" needs a "status")"
                          : "the action \"" + name + R"(" has no "status")");
  }
  if (hasTime != (fault.time.count() != 0)) {
    refuseFault("the action \"" + name + "\" " + (hasTime ? "needs" : "has no") + R"( "seconds")");
  }
  if (fault.location && (fault.status < 300 || fault.status > 399)) {
    refuseFault(R"(a "location" is for a "status" from 300 to 399)");
  }
  if (fault.device && fault.endpoint == Fault::Endpoint::login) {
    refuseFault("a login does not tell its \"device\"");
  }
}

}  // namespace

Fault Faults::add(Fault fault) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (faults_.size() >= maximumFaults) {
    // Those that are used up stay for what they tell, as long as there is room.
    const auto usedUp = std::find_if(faults_.begin(), faults_.end(), isUsedUp);
    if (usedUp == faults_.end()) refuseFault("there are 100 faults already");
    faults_.erase(usedUp);
  }
  fault.id = ++lastId_;
  fault.done = 0;
  faults_.push_back(fault);
  ++changes_;
  return fault;
}

bool Faults::remove(std::uint64_t id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found =
      std::find_if(faults_.begin(), faults_.end(), [id](const Fault &fault) { return fault.id == id; });
  if (found == faults_.end()) return false;
  faults_.erase(found);
  ++changes_;
  return true;
}

void Faults::clear() {
  const std::lock_guard<std::mutex> lock(mutex_);
  faults_.clear();
  ++changes_;
}

std::vector<Fault> Faults::matching(Fault::Endpoint endpoint,
                                    const std::optional<std::string> &device) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<Fault> found;
  for (const Fault &fault : faults_) {
    const bool isForIt = fault.endpoint == Fault::Endpoint::any || fault.endpoint == endpoint;
    if (!isUsedUp(fault) && isForIt && (!fault.device || fault.device == device)) found.push_back(fault);
  }
  return found;
}

bool Faults::use(std::uint64_t id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (Fault &fault : faults_) {
    if (fault.id != id || isUsedUp(fault)) continue;
    ++fault.done;
    ++changes_;
    return true;
  }
  return false;
}

Document Faults::documents() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  Document list = Document::array();
  for (const Fault &fault : faults_) list.push_back(documentOf(fault));
  return list;
}

std::uint64_t Faults::changes() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return changes_;
}

Document documentOf(const Fault &fault) {
  return {{"id", fault.id},
          {"endpoint", endpointNames[static_cast<std::size_t>(fault.endpoint)]},
          {"device", fault.device ? Document(*fault.device) : Document()},
          {"action", actionNames[static_cast<std::size_t>(fault.action)]},
          {"status", fault.status},
          {"location", fault.location ? Document(*fault.location) : Document()},
          {"seconds", static_cast<double>(fault.time.count()) / 1000},
          {"count", fault.count ? Document(*fault.count) : Document()},
          {"done", fault.done}};
}

Fault faultFrom(const std::string &json) {
  const Document document = parseDocument(json);
  if (!document.is_object()) refuseFault("a fault must be an object");
  if (!document.contains("action")) refuseFault("a fault needs an \"action\"");
  Fault fault;
  for (const auto &[key, value] : document.items()) {
    if (key == "status" && value == 0) continue;  // as it is shown where there is none
    if (key == "seconds" && value == 0) continue;
    set(fault, key, value);
  }
  checkParts(fault);
  return fault;
}

}  // namespace kx::collector
