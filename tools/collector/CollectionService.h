#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/collector/AccessTokens.h"
#include "tools/collector/CertificateDownload.h"
#include "tools/collector/Document.h"
#include "tools/collector/Faults.h"
#include "tools/collector/MessageValues.h"
#include "tools/collector/Record.h"
#include "tools/collector/SignedTokens.h"
#include "tools/collector/TokenKeys.h"
#include "tools/collector/Warnings.h"

namespace kx::collector {

/// An HTTP request that has arrived whole.
struct Request {
  std::string method;
  std::string target;                                       ///< as sent: path and query
  std::vector<std::pair<std::string, std::string>> fields;  ///< name and value, repeated ones included
  std::string body;                                         ///< as sent, not unpacked
  /// From the end of its header to its last byte.
  std::chrono::microseconds receiveTime{0};

  /// The values of all header fields of that name, in any case of letters. They are the request's.
  std::vector<std::string_view> values(std::string_view name) const;
};

enum class Endpoint { unknown, login, message };

/// The word for it that metrics and records have: "login", "message" or "other".
const char *nameOf(Endpoint endpoint);

/// What the service makes of a request.
struct Answer {
  Endpoint endpoint = Endpoint::unknown;
  unsigned status = 200;
  /// Why the request was not accepted, or not answered so, in words for the developer of the client; empty
  /// when it was.
  std::string reason;
  /// The access token that the answer to an accepted login carries.
  std::optional<std::string> accessToken;
  /// What a browser fetches here, which the answer carries; it lives as long as the service. Null for
  /// everything else.
  const Download *download = nullptr;
  /// The body unpacked, as far as that could be done, and what it held, as far as that could be read: the
  /// values of a message like nearly every one, and the document of everything else.
  std::optional<std::string> text;
  std::shared_ptr<const MessageValues> message;
  std::optional<Document> document;
  /// Which bytes of `text`, or of the body when that is absent, the reason is about.
  std::optional<OffendingBytes> offending;
  /// What is allowed and suspicious.
  std::vector<std::string> warnings;
  /// What fault switches did; empty if nothing.
  std::string fault;
  /// Where the answer sends the client instead; empty if nowhere.
  std::string location;
  /// How long it took to find all this.
  std::chrono::microseconds workTime{0};
  /// How long to wait before answering.
  std::chrono::milliseconds delay{0};
  /// Close the connection instead of answering.
  bool drop = false;
  /// Send half of the answer, and nothing more for that long; then close the connection.
  std::optional<std::chrono::milliseconds> stall;

  /// The header fields of the answer, without those of the connection.
  HeaderFields fields() const;
  /// The document, of a message as well; that takes longer than its values did.
  std::optional<Document> wholeDocument() const;
  /// The message in `document`, refused or not; null when there is none.
  const Document *messageObject() const;
};

/// How an endpoint misbehaves, for the tests of a client.
struct EndpointFaults {
  /// The status of the answer to a request that would be accepted; no token goes with it.
  std::optional<unsigned> status;
  /// For how many requests; absent for all of them.
  std::optional<unsigned> statusCount;
  /// How long every answer is held back.
  std::chrono::milliseconds delay{0};
  /// Whether the connection is closed instead of answering.
  bool drop = false;
};

struct CollectionServiceSettings {
  EndpointFaults login;
  EndpointFaults message;
  /// How long an access token is good for; absent for ever, and for a day when tokens are signed.
  std::optional<std::chrono::milliseconds> tokenLifetime;
  /// Of a body, packed and unpacked, in bytes.
  std::size_t maximumBodySize = std::size_t{1} << 20;
  /// What browsers of devices may fetch here; absent for nothing.
  std::optional<CertificateDownload> download;
  /// How many access tokens are good at the same time; a new one takes the place of the oldest. Of signed
  /// ones there is no end.
  std::size_t maximumTokens = 1024;
  /// What signs access tokens, so that whoever has the keys can check them; absent for tokens that are
  /// remembered.
  std::optional<TokenKeys> tokenKeys;
};

/// The collection service without a network: it accepts what the wire protocol allows and nothing else.
/// Logins answer with an access token, messages need one.
///
/// To be used by one thread at a time.
class CollectionService {
 public:
  static constexpr const char *loginPath = "/api_v0_0_0/do_login";
  static constexpr const char *messagePath = "/api_v0_0_0/post_msg";

  explicit CollectionService(CollectionServiceSettings settings);

  std::size_t maximumBodySize() const { return settings_.maximumBodySize; }
  /// The switches, those of the settings first. May be used on any thread.
  Faults &faults() { return faults_; }
  /// In the place of those of the settings, which have to have some.
  void useTokenKeys(TokenKeys keys) { signed_->useKeys(std::move(keys)); }
  /// A message with that "id" was accepted, before this object was there.
  void remember(const std::string &eventId) { warnings_.remember(eventId); }

  /// Takes a request. Throws only when there is no memory, or no random numbers, left.
  Answer receive(const Request &request, std::chrono::steady_clock::time_point now);

 private:
  /// These throw a Refusal.
  void checkAuthorization(const Request &request, Endpoint endpoint,
                          std::chrono::steady_clock::time_point now) const;
  void accept(const Request &request, std::chrono::steady_clock::time_point now, Answer &answer);
  /// Warns of what is suspicious in a message.
  void lookAt(Answer &answer);

  /// Lets the switches act that are on for such a request.
  void applyFaults(const Request &request, Answer &answer);
  void applyFault(const Fault &fault, const Request &request, Answer &answer);
  std::unique_ptr<AccessTokens> newTokens();

  const CollectionServiceSettings settings_;
  SignedTokens *signed_ = nullptr;  // the same as the next, if it is of that kind
  const std::unique_ptr<AccessTokens> tokens_;
  Warnings warnings_;
  Faults faults_;
};

}  // namespace kx::collector
