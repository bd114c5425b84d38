#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kx::collector {

/// Names and values in the order of the wire, repeated ones included.
using HeaderFields = std::vector<std::pair<std::string, std::string>>;

/// How long the parts of a request took.
struct Durations {
  std::int64_t receive = 0;  ///< from the end of its header to its last byte, in microseconds
  std::int64_t work = 0;     ///< until it was known what to answer, in microseconds
  std::int64_t send = 0;     ///< the answer, in microseconds; 0 until it is sent
};

/// What lists show of a request.
struct RecordSummary {
  std::uint64_t id = 0;               ///< 1, 2, ... in the order of arrival
  std::int64_t time = 0;              ///< of arrival, in milliseconds since 1970
  std::string kind;                   ///< "login", "message" or "other"
  bool accepted = false;              ///< whether it was answered as a request that is fine
  unsigned status = 0;                ///< of the answer
  std::string reason;                 ///< why it was not accepted; empty when it was
  std::optional<std::string> device;  ///< a message's "ifa"
  std::optional<std::string> bundle;  ///< a message's "bundleId"
  std::size_t packedSize = 0;         ///< of the body, in bytes
  std::size_t unpackedSize = 0;       ///< in bytes; 0 when it could not be unpacked
  std::vector<std::string> warnings;  ///< what is allowed and suspicious
  std::optional<std::string> fault;   ///< what fault switches did to it
  std::optional<std::string> eventId;
  std::optional<std::int64_t> eventTime;     ///< in milliseconds since 1970
  std::optional<double> latitude;            ///< degrees
  std::optional<double> longitude;           ///< degrees
  std::optional<double> horizontalAccuracy;  ///< metres
  Durations microseconds;
};

/// The bytes that a refusal is about.
struct OffendingBytes {
  std::size_t offset = 0;  ///< in the unpacked text; in the body when that could not be unpacked
  std::string bytes;
};

/// One request as it happened, whole.
struct Record : RecordSummary {
  std::string method;
  std::string target;
  std::string remoteAddress;  ///< with the port
  HeaderFields headerFields;
  std::string body;                 ///< as received
  std::optional<std::string> text;  ///< unpacked; absent when it could not be
  std::optional<OffendingBytes> offending;
  HeaderFields answerFields;  ///< without those of the connection
};

}  // namespace kx::collector
