#pragma once

#include <chrono>
#include <string>

#include "tools/collector/CollectionService.h"

namespace kx::collector {

/// A text as one gzip member.
std::string gzip(const std::string &text);

/// A login document, and a message in its array, as the wire protocol wants them.
Document loginDocument();
Document messageDocument();

/// Whether the text is a message in its array, by those who know why if not.
bool isMessageDocument(const std::string &text);

/// Requests that are accepted.
Request loginRequest(const Document &document = loginDocument());
Request messageRequest(const std::string &accessToken, const Document &document = messageDocument());

/// Changes the one header field of that name.
void setField(Request &request, const std::string &name, const std::string &value);
void removeField(Request &request, const std::string &name);

}  // namespace kx::collector
