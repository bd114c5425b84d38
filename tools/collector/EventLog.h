#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tools/collector/CollectionService.h"

namespace kx::collector {

/// Where the collector listens, for its first line.
struct ListeningAddress {
  std::string address;  ///< one that it can be called by
  std::uint16_t port = 0;
  /// What clients have to trust: the file of the certificate authority, or of the certificate that was given.
  std::string trustedFile;
  bool isAuthority = true;
  /// The page's address, and the token of requests that set its switches; empty if there is none.
  std::string page = {};
  std::string pageToken = {};
  /// The address of what operators ask; empty if there is none.
  std::string operations = {};
  std::string pagePassword =
      {};  ///< one that was made for it; empty if there is none, or the user has chosen it
  std::vector<std::string> otherAddresses{};  ///< that it can be called by as well

  /// What a URL has for that address and that port.
  static std::string hostAndPort(const std::string &host, std::uint16_t number);
  /// "127.0.0.1:8443"; an IPv6 address stands in brackets.
  std::string hostAndPort() const;
  /// "https://127.0.0.1:8443"
  std::string url() const;
};

/// "2026-01-31T12:34:56.789Z"
std::string utcNow();

/// Tells the developer what happens, as it happens: everything is flushed at once.
class EventLog {
 public:
  virtual ~EventLog() = default;

  virtual void listening(const ListeningAddress &where) = 0;
  /// A whole request has arrived from `client`, an address with a port.
  virtual void received(const std::string &client, const Request &request, const Answer &answer) = 0;
  /// What became of a request that had to be kept.
  struct Keeping {
    std::string problem = {};  ///< why it could not be kept; empty when it was
    unsigned status = 0;       ///< to answer with then; 0 to close the connection instead
  };
  /// Is told so, on any thread.
  using Kept = std::function<void(const Keeping &)>;
  /// The same for a request that is answered only when it is kept: then `kept` is called, at once or later.
  virtual void receive(const std::string &client, const Request &request, const Answer &answer,
                       const Kept &kept) {
    received(client, request, answer);
    kept({});
  }
  /// The answer to the latest request of that client has gone out, and took that long.
  virtual void answered(const std::string & /*client*/, std::chrono::microseconds /*time*/) {}
  /// A connection came to nothing.
  virtual void failed(const std::string &client, const std::string &reason) = 0;
};

/// For people: what arrived, one aligned line a value.
class PrettyEventLog : public EventLog {
 public:
  /// What stands in the place of `count` events that the reader was too slow for.
  static std::string leftOut(std::size_t count);

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
/// "connection"; or "leftOut", in the place of "count" others that the reader was too slow for.
class JSONEventLog : public EventLog {
 public:
  static std::string leftOut(std::size_t count);

  explicit JSONEventLog(std::ostream &output) : output_(output) {}

  void listening(const ListeningAddress &where) override;
  void received(const std::string &client, const Request &request, const Answer &answer) override;
  void failed(const std::string &client, const std::string &reason) override;

 private:
  void print(const Document &event);

  std::ostream &output_;
};

}  // namespace kx::collector
