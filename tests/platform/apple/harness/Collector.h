#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

namespace kx {

/// kx-collector on a free loopback port, whose certificate the device trusts from now on.
class Collector {
 public:
  using Document = nlohmann::ordered_json;

  explicit Collector(const std::vector<std::string> &arguments = {});

  /// "localhost:43210".
  std::string hostname() const;

  /// The requests that it has taken so far, for "login" or "message", in the order of arrival.
  std::vector<Document> requests(const std::string &endpoint) const;

  /// All it has printed, for the message of a failing test.
  std::string transcript() const { return program_->output() + program_->errors(); }

 private:
  std::vector<Document> events() const;

  TemporaryDirectory directory_;
  std::unique_ptr<ChildProcess> program_;
  Document where_;
};

}  // namespace kx
