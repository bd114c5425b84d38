#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "tools/collector/JSONPlaces.h"

namespace kx::collector {

/// What a refusal is about, as far as that is known: bytes of the unpacked text (of the body, when that
/// cannot be unpacked), or a member of the document in it.
struct Subject {
  enum class Part { none, bytes, key, value };

  Part part = Part::none;
  Span bytes = {};
  std::string outer = {};  ///< as placeOf has it
  std::string key = {};
};

/// Why a request is not accepted, in words for the developer of the client, and the HTTP status of the
/// answer.
class Refusal : public std::runtime_error {
 public:
  Refusal(unsigned status, const std::string &reason, Subject subject = {})
      : std::runtime_error(reason), status_(status), subject_(std::move(subject)) {}

  unsigned status() const { return status_; }
  const Subject &subject() const { return subject_; }

 private:
  unsigned status_;
  Subject subject_;
};

}  // namespace kx::collector
