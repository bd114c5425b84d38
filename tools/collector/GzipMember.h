#pragma once

#include <cstddef>
#include <string>

namespace kx::collector {

/// What a body that is exactly one gzip member unpacks to.
///
/// Throws a Refusal: 400 when the body is empty, no gzip member, damaged, cut off or followed by anything;
/// 413 when it unpacks to more than `maximumSize` bytes.
std::string unpackGzipMember(const std::string &body, std::size_t maximumSize);

}  // namespace kx::collector
