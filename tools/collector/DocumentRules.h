#pragma once

#include "tools/collector/Document.h"

namespace kx::collector {

/// Holds a login document against the wire protocol; throws a Refusal with status 400.
///
///     {"header":{"typ":"JWT","alg":"HS256"},"payload":{"aud":[h],"iss":h,"sub":"the API
///     token","name":"..."}}
void checkLoginDocument(const Document &document);

/// Holds what the message endpoint received against the wire protocol: an array of one flat object, every
/// known key of its type, and present if it has to be; a key that is not known may be one of a later library,
/// and holds no object and no null. Throws a Refusal with status 400.
void checkMessageDocument(const Document &document);

/// Whether messages of this library may have that key.
bool isMessageKey(const std::string &key);

}  // namespace kx::collector
