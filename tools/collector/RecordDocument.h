#pragma once

#include "tools/collector/Document.h"
#include "tools/collector/Record.h"

namespace kx::collector {

/// A request as lists show it, in JSON.
Document summaryDocument(const RecordSummary &summary);

/// A request whole. `previous` is the message of the same device before it.
Document recordDocument(const Record &record, std::optional<std::uint64_t> previous);

Document documentOf(const HeaderFields &fields);

/// The same as one line of plain ASCII, as below, in less time.
std::string fieldsLine(const HeaderFields &fields);

/// As one line of plain ASCII; what is not UTF-8 becomes U+FFFD.
std::string lineOf(const Document &document);

}  // namespace kx::collector
