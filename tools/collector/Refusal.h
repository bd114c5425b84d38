#pragma once

#include <stdexcept>
#include <string>

namespace kx::collector {

/// Why a request is not accepted, in words for the developer of the client, and the HTTP status of the
/// answer.
class Refusal : public std::runtime_error {
 public:
  Refusal(unsigned status, const std::string &reason) : std::runtime_error(reason), status_(status) {}

  unsigned status() const { return status_; }

 private:
  unsigned status_;
};

}  // namespace kx::collector
