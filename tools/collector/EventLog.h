#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "tools/collector/CollectionService.h"

namespace kx::collector {

/// Where the collector listens, for its first line.
struct ListeningAddress {
  std::string address;
  std::uint16_t port = 0;
  /// What clients have to trust: the file of the certificate authority, or of the certificate that was given.
  std::string trustedFile;
  bool isAuthority = true;
  /// The page's address, and the token of requests that set its switches; empty if there is none.
  std::string page = {};
  std::string pageToken = {};

  /// "https://127.0.0.1:8443"; an IPv6 address stands in brackets.
  std::string url() const;
};

/// Tells the developer what happens, as it happens: everything is flushed at once.
class EventLog {
 public:
  virtual ~EventLog() = default;

  virtual void listening(const ListeningAddress &where) = 0;
  /// A whole request has arrived from `client`, an address with a port.
  virtual void received(const std::string &client, const Request &request, const Answer &answer) = 0;
  /// The answer to the latest request of that client has gone out, and took that long.
  virtual void answered(const std::string & /*client*/, std::chrono::microseconds /*time*/) {}
  /// A connection came to nothing.
  virtual void failed(const std::string &client, const std::string &reason) = 0;
};

/// For people: what arrived, one aligned line a value.
class PrettyEventLog : public EventLog {
 public:
  PrettyEventLog(std::ostream &output, bool colours) : output_(output), colours_(colours) {}

  void listening(const ListeningAddress &where) override;
  void received(const std::string &client, const Request &request, const Answer &answer) override;
  void failed(const std::string &client, const std::string &reason) override;

 private:
  std::string coloured(const char *colour, const std::string &text) const;
  void printRow(const std::string &key, const std::string &value, std::size_t width);

  std::ostream &output_;
  const bool colours_;
};

/// For scripts: one line of JSON an event, with the member "event", which is "listening", "request" or
/// "connection".
class JSONEventLog : public EventLog {
 public:
  explicit JSONEventLog(std::ostream &output) : output_(output) {}

  void listening(const ListeningAddress &where) override;
  void received(const std::string &client, const Request &request, const Answer &answer) override;
  void failed(const std::string &client, const std::string &reason) override;

 private:
  void print(const Document &event);

  std::ostream &output_;
};

}  // namespace kx::collector
