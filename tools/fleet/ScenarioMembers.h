#pragma once

#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>

#include "tools/fleet/ScenarioFile.h"

namespace kx::fleet {

using Json = nlohmann::json;

constexpr double aDay = 86'400;  // seconds

/// Throws the ScenarioError of a value: where it stands, and what is wanted there.
[[noreturn]] void refuse(const std::string &place, const std::string &wanted);

/// A number of digits and at most one point; absent when the text is another.
std::optional<double> plainNumber(const std::string &text);

double numberFrom(const Json &value, const std::string &place, double least, double greatest);

/// The seconds of a text, as `read` understands it.
double secondsFrom(const Json &value, const std::string &place, double (*read)(const std::string &),
                   double greatest);

/// An object of the file. Each member is asked for once; those that nobody asks for are no members of a
/// scenario.
class Members {
 public:
  Members(const Json &object, std::string place) : object_(object), place_(std::move(place)) {
    if (!object.is_object()) refuse(place_, "an object is wanted here");
  }

  const Json *find(const char *name) {
    known_.insert(name);
    const auto found = object_.find(name);
    return found == object_.end() ? nullptr : &*found;
  }
  std::string placeOf(const char *name) const { return place_ + (place_.back() == ' ' ? "" : ".") + name; }

  void number(const char *name, double &number, double least, double greatest) {
    if (const Json *value = find(name)) number = numberFrom(*value, placeOf(name), least, greatest);
  }
  template <class Whole>
  void whole(const char *name, Whole &number, Whole least, Whole greatest) {
    auto read = static_cast<double>(number);
    this->number(name, read, static_cast<double>(least), static_cast<double>(greatest));
    if (read != std::floor(read)) refuse(placeOf(name), "a whole number is wanted here");
    number = static_cast<Whole>(read);
  }
  void share(const char *name, double &share) { number(name, share, 0, 1); }
  void flag(const char *name, bool &flag) {
    const Json *const value = find(name);
    if (value == nullptr) return;
    if (!value->is_boolean()) refuse(placeOf(name), "true or false is wanted here");
    flag = value->get<bool>();
  }
  void text(const char *name, std::string &text) {
    const Json *const value = find(name);
    if (value == nullptr) return;
    if (!value->is_string()) refuse(placeOf(name), "a text is wanted here");
    text = value->get<std::string>();
  }
  void timeOfDay(const char *name, double &seconds) {
    if (const Json *value = find(name)) seconds = secondsFrom(*value, placeOf(name), &secondsOfDay, aDay);
  }
  template <class Seconds>  // a number, or one that may be absent
  void length(const char *name, Seconds &seconds, double greatest = aDay) {
    if (const Json *value = find(name))
      seconds = secondsFrom(*value, placeOf(name), &secondsOfLength, greatest);
  }
  /// Has `read` called with each element and its place.
  template <class Read>
  void list(const char *name, std::size_t greatest, Read read) {
    const Json *const value = find(name);
    if (value == nullptr) return;
    if (!value->is_array() || value->size() > greatest)
      refuse(placeOf(name), "a list of at most " + std::to_string(greatest) + " is wanted here");
    std::size_t index = 0;
    for (const Json &element : *value) read(element, placeOf(name) + "[" + std::to_string(index++) + "]");
  }

  void end() const {
    for (const auto &[name, value] : object_.items()) {
      if (known_.count(name) == 0) refuse(place_, "no scenario has a member \"" + name + "\" here");
    }
  }

 private:
  const Json &object_;
  const std::string place_;
  std::set<std::string> known_;
};

}  // namespace kx::fleet
