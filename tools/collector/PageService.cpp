#include "tools/collector/PageService.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <charconv>
#include <optional>

#include "tools/collector/CertificateDownload.h"
#include "tools/collector/EmbeddedFiles.h"
#include "tools/collector/Encoding.h"
#include "tools/collector/Options.h"
#include "tools/collector/PageFiles.h"
#include "tools/collector/PagePassword.h"
#include "tools/collector/RecordDocument.h"
#include "tools/collector/Refusal.h"

namespace kx::collector {

namespace {

constexpr std::size_t tokenSize = 16;  // bytes
constexpr std::uint64_t maximumLimit = 1000;
constexpr std::uint64_t usualLimit = 100;
constexpr std::uint64_t longestWait = 300;  // seconds
constexpr std::uint64_t usualWait = 30;     // seconds

std::int64_t millisecondsNow() {
  using std::chrono::milliseconds;
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<milliseconds>(sinceEpoch).count();
}

PageAnswer json(const Document &document, unsigned status = 200) {
  PageAnswer answer;
  answer.status = status;
  answer.mediaType = "application/json";
  answer.body = lineOf(document) + "\n";
  return answer;
}

PageAnswer nothing() {
  PageAnswer answer;
  answer.status = 204;
  return answer;
}

PageAnswer fed(const char *mediaType, std::unique_ptr<Feed> feed) {
  PageAnswer answer;
  answer.mediaType = mediaType;
  answer.feed = std::move(feed);
  return answer;
}

std::optional<std::uint64_t> idIn(std::string_view text) {
  std::uint64_t id = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), id);
  const bool isWhole = result.ec == std::errc() && result.ptr == text.data() + text.size();
  if (!isWhole || id == 0 || id > INT64_MAX) return std::nullopt;
  return id;
}

/// The id in a path that fits that pattern, 0 where the pattern has none; absent when it does not fit.
std::optional<std::uint64_t> idMatching(std::string_view pattern, std::string_view path) {
  const auto brace = pattern.find('{');
  if (brace == std::string_view::npos) {
    if (path != pattern) return std::nullopt;
    return 0;
  }
  if (path.substr(0, brace) != pattern.substr(0, brace)) return std::nullopt;
  return idIn(path.substr(brace));
}

}  // namespace

const std::vector<PageService::Route> &PageService::allRoutes() {
  static const std::vector<Route> routes = {
      {"GET", "/api/status", &PageService::status},
      {"GET", "/api/counts", &PageService::counts},
      {"GET", "/api/requests", &PageService::requests},
      {"DELETE", "/api/requests", &PageService::reset},
      {"GET", "/api/requests/{id}", &PageService::request},
      {"GET", "/api/devices", &PageService::devices},
      {"GET", "/api/wait", &PageService::wait},
      {"GET", "/api/download", &PageService::download},
      {"GET", "/api/events", &PageService::events},
      {"GET", "/api/faults", &PageService::faults},
      {"POST", "/api/faults", &PageService::addFault},
      {"DELETE", "/api/faults", &PageService::removeFaults},
      {"DELETE", "/api/faults/{id}", &PageService::removeFault},
      {"GET", "/api/openapi.json", &PageService::description},
      {"GET", "/ca.pem", &PageService::certificate},
      {"GET", "/ca.mobileconfig", &PageService::profile},
  };
  return routes;
}

std::vector<std::pair<std::string, std::string>> PageService::routes() {
  std::vector<std::pair<std::string, std::string>> routes;
  for (const Route &route : allRoutes()) routes.emplace_back(route.method, std::string(route.path));
  return routes;
}

PageService::PageService(Store &store, Faults &faults, CollectorStatus status, PageAccess access)
    : store_(store),
      faults_(faults),
      status_(std::move(status)),
      access_(std::move(access)),
      started_(millisecondsNow()),
      token_(randomHexadecimal(tokenSize)) {}

PageAnswer PageService::answer(const PageRequest &request, Feed::Time now) {
  try {
    return answerOrThrow(request, now);
  } catch (const Refusal &refusal) {
    return pageRefusal(refusal.status(), refusal.what());
  }
}

PageAnswer PageService::answerOrThrow(const PageRequest &request, Feed::Time now) {
  checkWhereFrom(request, port_, access_.names);
  if (isPasswordMissing(request)) {
    PageAnswer answer =
        pageRefusal(401, "the page needs the password that kx-collector has printed at its start");
    answer.fields.emplace_back("WWW-Authenticate", R"(Basic realm="kx-collector", charset="UTF-8")");
    return answer;
  }
  const std::string_view path = pathOf(request.target);
  const std::string method = request.method == "HEAD" ? "GET" : request.method;
  std::string allowed;
  for (const Route &route : allRoutes()) {
    const auto id = idMatching(route.path, path);
    if (!id) continue;
    if (method == route.method) {
      Query query(request.target);
      return (this->*route.handler)(request, query, *id, now);
    }
    allowed += (allowed.empty() ? "" : ", ") + std::string(route.method);
  }
  const bool isFile = allowed.empty();
  if (isFile && method == "GET") return file(path);
  if (isFile) file(path);  // has to be there
  PageAnswer answer = pageRefusal(405, "the method must be " + (isFile ? "GET" : allowed));
  answer.fields.emplace_back("Allow", isFile ? "GET" : allowed);
  return answer;
}

PageAnswer PageService::status(const PageRequest &, Query &query, std::uint64_t, Feed::Time) {
  query.expectNoMore();
  Document phone;
  if (status_.phone) {
    phone = {{"page", status_.phone->page},
             {"fingerprint", status_.phone->fingerprint},
             {"qrCode", status_.phone->qrCode}};
  }
  return json({{"version", version},
               {"service", status_.service},
               {"addresses", status_.addresses},
               {"caFile", status_.caFile},
               {"next", status_.nextSteps},
               {"phone", std::move(phone)},
               {"started", started_}});
}

PageAnswer PageService::counts(const PageRequest &, Query &query, std::uint64_t, Feed::Time) {
  const RecordFilter filter = query.filter();
  query.expectNoMore();
  const RecordCounts counts = store_.counts(filter);
  return json({{"all", counts.all},
               {"good", counts.good},
               {"bad", counts.bad},
               {"logins", counts.logins},
               {"messages", counts.messages},
               {"warned", counts.warned}});
}

PageAnswer PageService::requests(const PageRequest &, Query &query, std::uint64_t, Feed::Time) {
  const RecordFilter filter = query.filter();
  const auto limit = query.number("limit", 1, maximumLimit).value_or(usualLimit);
  const bool newestFirst = query.choice("order", {"asc", "desc"}).value_or(0) == 1;
  query.expectNoMore();
  const RecordPage page = store_.requests(filter, limit, newestFirst);
  Document requests = Document::array();
  for (const RecordSummary &summary : page.requests) requests.push_back(summaryDocument(summary));
  return json({{"requests", std::move(requests)}, {"more", page.more}});
}

PageAnswer PageService::request(const PageRequest &, Query &query, std::uint64_t id, Feed::Time) {
  query.expectNoMore();
  const auto record = store_.record(id);
  if (!record) throw Refusal(404, "there is no request " + std::to_string(id) + ", or no more");
  return json(recordDocument(*record, store_.previous(*record)));
}

PageAnswer PageService::reset(const PageRequest &, Query &query, std::uint64_t, Feed::Time) {
  query.expectNoMore();
  store_.reset();
  return nothing();
}

PageAnswer PageService::devices(const PageRequest &, Query &query, std::uint64_t, Feed::Time) {
  query.expectNoMore();
  Document devices = Document::array();
  for (const KnownDevice &device : store_.devices()) {
    devices.push_back({{"device", device.device},
                       {"bundle", device.bundle ? Document(*device.bundle) : Document()},
                       {"first", device.first},
                       {"last", device.last},
                       {"messages", device.messages},
                       {"refused", device.refused}});
  }
  return json({{"devices", std::move(devices)}});
}

PageAnswer PageService::wait(const PageRequest &, Query &query, std::uint64_t, Feed::Time now) {
  RecordFilter filter = query.filter();
  const auto count = query.number("count", 1, maximumLimit).value_or(1);
  const auto timeout = query.number("timeout", 0, longestWait).value_or(usualWait);
  query.expectNoMore();
  return fed("application/json", std::make_unique<WaitFeed>(store_, std::move(filter), count,
                                                            now + std::chrono::seconds(timeout)));
}

PageAnswer PageService::download(const PageRequest &, Query &query, std::uint64_t, Feed::Time) {
  RecordFilter filter = query.filter();
  query.expectNoMore();
  PageAnswer answer = fed("application/x-ndjson", std::make_unique<DownloadFeed>(store_, std::move(filter)));
  answer.fields.emplace_back("Content-Disposition", "attachment; filename=\"requests.ndjson\"");
  return answer;
}

PageAnswer PageService::events(const PageRequest &request, Query &query, std::uint64_t, Feed::Time now) {
  query.expectNoMore();
  std::optional<std::uint64_t> last;
  if (const auto given = request.value("Last-Event-ID")) last = idIn(*given);
  return fed("text/event-stream", std::make_unique<EventFeed>(store_, faults_, last, now));
}

PageAnswer PageService::faults(const PageRequest &, Query &query, std::uint64_t, Feed::Time) {
  query.expectNoMore();
  return json({{"faults", faults_.documents()}});
}

PageAnswer PageService::addFault(const PageRequest &request, Query &query, std::uint64_t, Feed::Time) {
  checkToken(request);
  query.expectNoMore();
  return json(documentOf(faults_.add(faultFrom(request.body))), 201);
}

PageAnswer PageService::removeFault(const PageRequest &request, Query &query, std::uint64_t id, Feed::Time) {
  checkToken(request);
  query.expectNoMore();
  if (!faults_.remove(id)) throw Refusal(404, "there is no fault " + std::to_string(id));
  return nothing();
}

PageAnswer PageService::removeFaults(const PageRequest &request, Query &query, std::uint64_t, Feed::Time) {
  checkToken(request);
  query.expectNoMore();
  faults_.clear();
  return nothing();
}

PageAnswer PageService::description(const PageRequest &, Query &query, std::uint64_t, Feed::Time) {
  query.expectNoMore();
  return file("/openapi.json");
}

PageAnswer PageService::certificate(const PageRequest &, Query &query, std::uint64_t, Feed::Time) {
  query.expectNoMore();
  if (status_.caCertificate.empty()) throw Refusal(404, "the collector has no authority of its own");
  PageAnswer answer;
  answer.mediaType = "application/x-x509-ca-cert";
  answer.body = status_.caCertificate;
  return answer;
}

PageAnswer PageService::profile(const PageRequest &, Query &query, std::uint64_t, Feed::Time) {
  query.expectNoMore();
  if (status_.caCertificate.empty()) throw Refusal(404, "the collector has no authority of its own");
  PageAnswer answer;
  answer.mediaType = "application/x-apple-aspen-config";
  answer.body = CertificateDownload(status_.caCertificate).find(CertificateDownload::profilePath)->body;
  return answer;
}

void PageService::checkToken(const PageRequest &request) const {
  const std::string given = request.value("X-Page-Token").value_or("");
  const bool isRight =
      given.size() == token_.size() && CRYPTO_memcmp(given.data(), token_.data(), token_.size()) == 0;
  if (!isRight) throw Refusal(403, "the header X-Page-Token must be the one that is in the page");
}

bool PageService::isPasswordMissing(const PageRequest &request) const {
  return access_.password && !isAuthorized(request.value("Authorization").value_or(""), *access_.password);
}

PageAnswer PageService::file(std::string_view path) const {
  const std::string_view name =
      path == "/" ? "index.html" : path.substr(std::min<std::size_t>(1, path.size()));
  const auto &files = embeddedFiles();
  const auto found = std::find_if(files.begin(), files.end(),
                                  [name](const EmbeddedFile &file) { return file.name == name; });
  if (found == files.end()) throw Refusal(404, "there is nothing at " + quote(path));
  PageAnswer answer;
  answer.mediaType = mediaTypeOf(name);
  answer.body = name == "index.html" ? withToken(found->content, token_) : std::string(found->content);
  return answer;
}

PageAnswer pageRefusal(unsigned status, const std::string &reason) {
  return json({{"error", reason}}, status);
}

}  // namespace kx::collector
