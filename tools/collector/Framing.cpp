#include "tools/collector/Framing.h"

#include <boost/beast/core/string.hpp>
#include <cstddef>
#include <string>

#include "tools/collector/Document.h"

namespace kx::collector {

namespace beast = boost::beast;
namespace http = beast::http;

namespace {

constexpr unsigned http11 = 11;

/// The values of all header fields of that name, in one list.
std::string listed(const http::request_header<> &header, http::field name) {
  std::string list;
  const auto [first, end] = header.equal_range(name);
  for (auto field = first; field != end; ++field) {
    if (field != first) list += ", ";
    list.append(field->value().data(), field->value().size());
  }
  return list;
}

std::optional<Refusal> transferEncodingRefusal(const http::request_header<> &header) {
  if (header.count(http::field::transfer_encoding) == 0) return std::nullopt;
  const std::string codings = listed(header, http::field::transfer_encoding);
  if (header.version() < http11) return Refusal(400, "HTTP/1.0 does not have Transfer-Encoding");
  if (beast::iequals(codings, "chunked")) return std::nullopt;
  const std::size_t last = codings.find_last_of(", \t") + 1;  // 0 when it is the only one
  if (!beast::iequals(codings.substr(last), "chunked")) {
    return Refusal(
        400, "the last of Transfer-Encoding must be chunked, or the body has no end: " + quote(codings));
  }
  return Refusal(501, "no Transfer-Encoding but chunked is understood: " + quote(codings));
}

std::optional<Refusal> hostRefusal(const http::request_header<> &header) {
  const auto count = header.count(http::field::host);
  if (count > 1) return Refusal(400, "the header Host is there more than once");
  if (header.version() < http11) return std::nullopt;
  if (count == 0 || header[http::field::host].empty()) {
    return Refusal(400, "the header Host is missing, which HTTP/1.1 requires");
  }
  return std::nullopt;
}

}  // namespace

std::optional<Refusal> framingRefusal(const http::request_header<> &header) {
  if (auto refusal = transferEncodingRefusal(header)) return refusal;
  return hostRefusal(header);
}

}  // namespace kx::collector
