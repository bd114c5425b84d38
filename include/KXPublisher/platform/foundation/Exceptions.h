#pragma once

#include <stdexcept>

#include "KXPublisher/platform/foundation/Export.h"

namespace kx {

/// NSInternalInconsistencyException: an abstract operation was called on a class that does not supply it.
/// `what()` is the reason.
class KX_EXPORT InternalInconsistencyException : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

/// The unrecognised-operation failure (`doesNotRecognizeSelector:`): the object answers to no such operation
/// in the state it is in. `what()` names the object and the operation.
class KX_EXPORT UnrecognizedSelectorException : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

/// NSRangeException: a list was asked for an element that it does not have.
class KX_EXPORT RangeException : public std::out_of_range {
 public:
  using std::out_of_range::out_of_range;
};

}  // namespace kx
