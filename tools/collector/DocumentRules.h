#pragma once

#include "tools/collector/Document.h"

namespace kx::collector {

/// Holds a login document against the wire protocol; throws a Refusal with status 400.
///
///     {"header":{"typ":"JWT","alg":"HS256"},"payload":{"aud":[h],"iss":h,"sub":"the API
///     token","name":"..."}}
void checkLoginDocument(const Document &document);

/// Holds what the message endpoint received against the wire protocol: an array of one flat object, every key
/// known, of its type, and present if it has to be. Throws a Refusal with status 400.
void checkMessageDocument(const Document &document);

}  // namespace kx::collector
