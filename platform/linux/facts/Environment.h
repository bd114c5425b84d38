#pragma once

#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace kx {

/// Environment variables as they were when this object was made. A later `getenv`, on a thread of our own,
/// would race with a host that changes its environment.
class Environment {
 public:
  explicit Environment(std::map<std::string, std::string> variables) : variables_(std::move(variables)) {}

  /// Those of the process. To be called where the host does not change them: on the thread that calls the
  /// library.
  static Environment ofProcess(std::initializer_list<const char *> names);

  /// The value of a variable; absent when it is unset or empty.
  std::optional<std::string> value(const std::string &name) const;

 private:
  std::map<std::string, std::string> variables_;
};

}  // namespace kx
