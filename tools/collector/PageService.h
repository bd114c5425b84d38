#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/collector/Faults.h"
#include "tools/collector/Feed.h"
#include "tools/collector/PageRequest.h"
#include "tools/collector/Store.h"

namespace kx::collector {

/// What the page's server answers.
struct PageAnswer {
  unsigned status = 200;
  std::string mediaType;
  std::string body;
  HeaderFields fields;         ///< besides those that every answer has
  std::unique_ptr<Feed> feed;  ///< if it is there, the body comes from it
};

/// How a phone comes to trust the collector.
struct PhoneSteps {
  std::string page;                 ///< what it opens, "https://192.0.2.7:8443/ca"
  std::string fingerprint;          ///< the certificate's SHA-256
  std::vector<std::string> qrCode;  ///< the page's address, as qrModules has it
};

/// What the page tells of the collector.
struct CollectorStatus {
  std::string service;        ///< "https://127.0.0.1:8443"
  std::string caFile;         ///< that clients have to trust
  std::string caCertificate;  ///< the same in PEM; empty if it is no authority of the collector's own
  std::vector<std::string> nextSteps;  ///< lines for the developer of a host
  std::vector<std::string> addresses;  ///< all by which the service can be called, like `service`
  std::optional<PhoneSteps> phone;     ///< absent where no other device can call the service
};

/// Who may see the page.
struct PageAccess {
  /// By which names it may be called besides those of loopback; IPv6 addresses in brackets.
  std::vector<std::string> names;
  /// What browsers have to ask for (HTTP Basic, any user); absent for nothing.
  std::optional<std::string> password;
};

/// What a PageServer serves.
///
/// To be used by one thread at a time.
class WebService {
 public:
  virtual ~WebService() = default;

  /// Where it is reached.
  virtual void setPort(std::uint16_t port) = 0;
  virtual PageAnswer answer(const PageRequest &request, Feed::Time now) = 0;
};

/// The page, and what it and the tests of hosts ask, without a network: files, REST, server-sent events.
///
/// To be used by one thread at a time.
class PageService : public WebService {
 public:
  PageService(Store &store, Faults &faults, CollectorStatus status, PageAccess access = {});

  /// What the header field X-Page-Token of requests has to be that set switches.
  const std::string &token() const { return token_; }
  /// Where it is reached; it answers nothing else.
  void setPort(std::uint16_t port) override { port_ = port; }

  PageAnswer answer(const PageRequest &request, Feed::Time now) override;

  /// The methods and the paths of all that can be asked but files; a path may have "{id}" in it.
  static std::vector<std::pair<std::string, std::string>> routes();

 private:
  using Handler = PageAnswer (PageService::*)(const PageRequest &, Query &, std::uint64_t id, Feed::Time now);
  struct Route {
    const char *method;
    std::string_view path;
    Handler handler;
  };
  static const std::vector<Route> &allRoutes();

  PageAnswer answerOrThrow(const PageRequest &request, Feed::Time now);
  PageAnswer status(const PageRequest &, Query &, std::uint64_t, Feed::Time);
  PageAnswer counts(const PageRequest &, Query &, std::uint64_t, Feed::Time);
  PageAnswer requests(const PageRequest &, Query &, std::uint64_t, Feed::Time);
  PageAnswer request(const PageRequest &, Query &, std::uint64_t id, Feed::Time);
  PageAnswer reset(const PageRequest &, Query &, std::uint64_t, Feed::Time);
  PageAnswer devices(const PageRequest &, Query &, std::uint64_t, Feed::Time);
  PageAnswer wait(const PageRequest &, Query &, std::uint64_t, Feed::Time now);
  PageAnswer download(const PageRequest &, Query &, std::uint64_t, Feed::Time);
  PageAnswer events(const PageRequest &, Query &, std::uint64_t, Feed::Time now);
  PageAnswer faults(const PageRequest &, Query &, std::uint64_t, Feed::Time);
  PageAnswer addFault(const PageRequest &, Query &, std::uint64_t, Feed::Time);
  PageAnswer removeFault(const PageRequest &, Query &, std::uint64_t id, Feed::Time);
  PageAnswer removeFaults(const PageRequest &, Query &, std::uint64_t, Feed::Time);
  PageAnswer description(const PageRequest &, Query &, std::uint64_t, Feed::Time);
  PageAnswer certificate(const PageRequest &, Query &, std::uint64_t, Feed::Time);
  PageAnswer profile(const PageRequest &, Query &, std::uint64_t, Feed::Time);

  void checkToken(const PageRequest &request) const;
  bool isPasswordMissing(const PageRequest &request) const;
  /// Throws a Refusal with status 404 when there is none.
  PageAnswer file(std::string_view path) const;

  Store &store_;
  Faults &faults_;
  const CollectorStatus status_;
  const PageAccess access_;
  const std::int64_t started_;
  const std::string token_;
  std::uint16_t port_ = 0;
};

/// The answer to a request that is not accepted.
PageAnswer pageRefusal(unsigned status, const std::string &reason);

}  // namespace kx::collector
