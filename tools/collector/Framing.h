#pragma once

#include <boost/beast/http/fields.hpp>
#include <boost/beast/http/message.hpp>
#include <optional>

#include "tools/collector/Refusal.h"

namespace kx::collector {

/// Why a request must not be read on after its header: it leaves open where it ends, or whom it is for. What
/// follows such a header could be taken for the next request, so the connection has to end with the answer.
/// Absent when there is nothing against it.
std::optional<Refusal> framingRefusal(const boost::beast::http::request_header<> &header);

}  // namespace kx::collector
