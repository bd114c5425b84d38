#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace kx::collector {

/// A JSON document whose members stand in the order in which they arrived.
using Document = nlohmann::ordered_json;

/// Reads a JSON text strictly: valid UTF-8 without a byte order mark, no key twice in one object, no number
/// out of range; and within bounds: 8 levels, 1000 members in one object. Throws a Refusal with status 400.
Document parseDocument(const std::string &text);

/// A value as JSON text that is safe to print on a terminal: whatever a client sends, no control character
/// reaches it, nor one that reorders, breaks or hides what stands beside it. Long ones are cut off, which
/// "..." shows.
std::string printable(const Document &value);

/// The same for any text, UTF-8 or not, with quotation marks around it.
std::string quote(std::string_view text);

}  // namespace kx::collector
