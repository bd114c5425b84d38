#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "tools/collector/Document.h"
#include "tools/collector/JSONValue.h"

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

/// The number of the rule for a message's key, from 0 on; absent for a key that is not in the message
/// reference.
std::optional<std::size_t> messageRule(std::string_view key);
/// How many rules there are for the keys of messages.
std::size_t messageRuleCount();
/// Whether a message may have that value, which may be absent, under the key of that rule.
bool keepsMessageRule(std::size_t number, const JSONValue &value);

}  // namespace kx::collector
