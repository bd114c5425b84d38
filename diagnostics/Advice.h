#pragma once

#include <string>

#include "KXPublisher/diagnostics/KXDiagnosis.h"

namespace kx {

/// What is wrong and what to do about it, a line each, in the order of a message's road; empty when nothing
/// is.
std::string adviceFor(const KXDiagnosis &diagnosis);

}  // namespace kx
