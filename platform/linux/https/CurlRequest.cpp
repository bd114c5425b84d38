#include "platform/linux/https/CurlRequest.h"

#include <glib.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/linux/console/CallbackBoundary.h"

namespace kx {

namespace {

constexpr const char *errorDomain = "libcurl";
constexpr long maximumRedirects = 10;
// Bytes, over all redirects. Servers bound theirs to a half of this or less.
constexpr std::size_t maximumHeaderSize = std::size_t{32} * 1024;
// Bytes. A longer body costs more than the new connection that reading it would save.
constexpr curl_off_t maximumBodySize = curl_off_t{64} * 1024;

constexpr int latestResponse = -1;

bool isTokenCharacter(char character) {
  return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
         (character >= 'a' && character <= 'z') ||
         (character != '\0' && std::strchr("!#$%&'*+-.^_`|~", character) != nullptr);
}

bool isToken(const std::string &text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

/// Whether a text can be a header's value: it holds no control character but the tabulator.
bool isFieldValue(const std::string &text) {
  return std::all_of(text.begin(), text.end(), [](char character) {
    const auto byte = static_cast<unsigned char>(character);
    return (byte >= ' ' && byte != 0x7f) || byte == '\t';
  });
}

/// Whether the request's own texts stay where they belong in its header.
bool mayBeSent(const URLRequest &request) {
  const auto &fields = request.allHTTPHeaderFields;
  return isToken(request.HTTPMethod) && std::all_of(fields.begin(), fields.end(), [](const auto &field) {
           return isToken(field.first) && isFieldValue(field.second);
         });
}

bool isUTF8(const char *text) {
  return g_utf8_validate(text, -1, nullptr) != FALSE;
}

/// curl leaves a carriage return in place of an empty value.
std::string_view valueOf(const curl_header &field) {
  const std::string_view value = field.value;
  return value == "\r" ? std::string_view() : value;
}

/// curl's texts can quote what a server sent.
std::string oneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char character) { return character < ' ' || character > '~'; }, '?');
  return text;
}

Error errorOf(CURLcode code, const std::string &text = {}) {
  return {errorDomain, code, text.empty() ? curl_easy_strerror(code) : oneLine(text)};
}

/// Sets options of a handle, up to the first that it refuses.
class Options {
 public:
  explicit Options(CURL *easy) : easy_(easy) {}

  template <class Value>
  void set(CURLoption option, Value value) {
    if (result == CURLE_OK) result = curl_easy_setopt(easy_, option, value);
  }

  CURLcode result = CURLE_OK;

 private:
  CURL *const easy_;
};

}  // namespace

CurlRequest::CurlRequest(URLRequest request, std::optional<Data> body, Completion completion)
    : request_(std::move(request)),
      body_(body ? *std::move(body) : Data()),
      completion_(std::move(completion)),
      followsRedirects_(request_.HTTPMethod == "POST") {}

std::optional<Error> CurlRequest::prepare(const CurlSettings &settings, const CurlTrust &trust,
                                          CurlSockets &sockets, CURLSH *shared) {
  timeoutWithoutProgress_ = settings.timeoutWithoutProgress;
  timeoutForResource_ = settings.timeoutForResource;
  bodyTime_ = settings.bodyTime;
  if (!mayBeSent(request_)) {
    return errorOf(CURLE_BAD_FUNCTION_ARGUMENT, "The method or a header field is not one of HTTP");
  }
  easy_.reset(curl_easy_init());
  if (easy_ == nullptr) return errorOf(CURLE_FAILED_INIT);
  headerLines_.reset();
  trustWasWhole_ = trust.isWhole();
  const CURLcode result = setOptions(settings, trust, sockets, shared);
  if (result != CURLE_OK) return errorOf(result);
  lastProgress_ = Clock::now();
  return std::nullopt;
}

bool CurlRequest::appendHeaderLine(const std::string &line) {
  curl_slist *const longer = curl_slist_append(headerLines_.get(), line.c_str());
  if (longer == nullptr) return false;
  static_cast<void>(headerLines_.release());
  headerLines_.reset(longer);
  return true;
}

CURLcode CurlRequest::setOptions(const CurlSettings &settings, const CurlTrust &trust, CurlSockets &sockets,
                                 CURLSH *shared) {
  // A line without a value keeps curl from adding a field of its own; an empty field is written with a
  // semicolon. "Accept" would say that any body will do, of which none is read; "User-Agent" adds curl only
  // when it is told what.
  bool appended = appendHeaderLine("Expect:") && appendHeaderLine("Accept:");
  bool hasContentType = false;
  for (const auto &[name, value] : request_.allHTTPHeaderFields) {
    const bool blank = value.find_first_not_of(" \t") == std::string::npos;
    std::string line = name;
    line += blank ? std::string(";") : ": " + value;
    appended = appended && appendHeaderLine(line);
    hasContentType = hasContentType || g_ascii_strcasecmp(name.c_str(), "Content-Type") == 0;
  }
  if (!hasContentType) appended = appended && appendHeaderLine("Content-Type:");
  if (!appended) return CURLE_OUT_OF_MEMORY;

  errorText_.assign(CURL_ERROR_SIZE, '\0');
  Options options(easy_.get());
  options.set(CURLOPT_SHARE, shared);
  options.set(CURLOPT_ERRORBUFFER, errorText_.data());
  options.set(CURLOPT_NOSIGNAL, 1L);
  // A name that is still being resolved when its request has ended is left to its own thread, not waited for.
  options.set(CURLOPT_QUICK_EXIT, 1L);
  if (options.result == CURLE_OK) options.result = sockets.applyTo(easy_.get());

  options.set(CURLOPT_URL, request_.url.absoluteString.c_str());
  options.set(CURLOPT_PATH_AS_IS, 1L);
  options.set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
  options.set(CURLOPT_PROTOCOLS_STR, "https");
  options.set(CURLOPT_REDIR_PROTOCOLS_STR, "https");
  options.set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  options.set(CURLOPT_SSL_VERIFYPEER, 1L);
  options.set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (options.result == CURLE_OK) options.result = trust.applyTo(easy_.get());
  if (options.result == CURLE_OK) options.result = settings.proxy.applyTo(easy_.get());

  // One request in ten minutes has nothing to gain from the streams of HTTP/2.
  options.set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  options.set(CURLOPT_HTTPHEADER, headerLines_.get());
  // A proxy sees none of these fields, and what it answers to CONNECT is no answer.
  options.set(CURLOPT_HEADEROPT, static_cast<long>(CURLHEADER_SEPARATE));
  options.set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  options.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body_.size()));
  options.set(CURLOPT_POSTFIELDS, body_.empty() ? "" : reinterpret_cast<const char *>(body_.data()));
  if (followsRedirects_) {
    options.set(CURLOPT_FOLLOWLOCATION, 1L);
    options.set(CURLOPT_MAXREDIRS, maximumRedirects);
    options.set(CURLOPT_UNRESTRICTED_AUTH, 0L);
  } else {
    // curl would keep a method of ours where a redirect changes it; the redirect is the answer then.
    options.set(CURLOPT_CUSTOMREQUEST, request_.HTTPMethod.c_str());
  }

  // A server's addresses share the time that there is for all of them.
  options.set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeoutWithoutProgress_.count()));
  options.set(CURLOPT_HEADERFUNCTION, &headerCallback);
  options.set(CURLOPT_HEADERDATA, this);
  options.set(CURLOPT_WRITEFUNCTION, &bodyCallback);
  options.set(CURLOPT_DEBUGFUNCTION, &debugCallback);
  options.set(CURLOPT_DEBUGDATA, this);
  options.set(CURLOPT_VERBOSE, 1L);
  return options.result;
}

CurlRequest::Clock::time_point CurlRequest::deadline() const {
  return std::min(isInBody() ? headerCompleted_ + bodyTime_ : lastProgress_ + timeoutWithoutProgress_,
                  made_ + timeoutForResource_);
}

bool CurlRequest::isOverdue(Clock::time_point now) const {
  if (now >= deadline()) return true;
  curl_off_t received = 0;
  if (isInBody()) curl_easy_getinfo(easy_.get(), CURLINFO_SIZE_DOWNLOAD_T, &received);
  return received > maximumBodySize;
}

bool CurlRequest::isInBody() const {
  return redirectsBeforeHeader_ && redirects() == *redirectsBeforeHeader_;
}

long CurlRequest::redirects() const {
  long redirects = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_REDIRECT_COUNT, &redirects);
  return redirects;
}

void CurlRequest::end(CURLcode result) noexcept {
  runAtBoundary([this, result] { complete(errorAfter(result)); });
}

void CurlRequest::expire() noexcept {
  runAtBoundary([this] { complete(errorOf(CURLE_OPERATION_TIMEDOUT)); });
}

void CurlRequest::fail(const Error &error) noexcept {
  runAtBoundary([this, &error] { complete(error); });
}

void CurlRequest::fail(const char *reason) noexcept {
  runAtBoundary([this, reason] { complete(errorOf(CURLE_FAILED_INIT, reason)); });
}

void CurlRequest::failWithErrorNumber(int number) noexcept {
  runAtBoundary([this, number] { complete({"POSIX", number, std::generic_category().message(number)}); });
}

void CurlRequest::complete(const Error &otherwise) {
  const Completion completion = std::exchange(completion_, nullptr);
  if (status_) {
    completion(response(*status_), std::nullopt);
  } else {
    completion(nullptr, otherwise);
  }
}

Error CurlRequest::errorAfter(CURLcode result) const {
  if (headerSize_ > maximumHeaderSize) return errorOf(result, "The header of the answer is too large");
  // An interim response is all that came.
  return result == CURLE_OK ? errorOf(CURLE_WEIRD_SERVER_REPLY) : errorOf(result, errorText_.data());
}

std::shared_ptr<URLResponse> CurlRequest::response(long status) const {
  HTTPURLResponse::HeaderFields fields;
  for (curl_header *field = nullptr;
       (field = curl_easy_nextheader(easy_.get(), CURLH_HEADER, latestResponse, field)) != nullptr;) {
    if (!isUTF8(field->name) || !isUTF8(field->value)) continue;
    const auto [known, isNew] = fields.emplace(field->name, valueOf(*field));
    if (!isNew) known->second.append(", ").append(valueOf(*field));
  }
  return std::make_shared<HTTPURLResponse>(status, std::move(fields));
}

// ---- What curl tells while the request runs. Nothing here throws.

std::size_t CurlRequest::headerCallback(char *line, std::size_t unit, std::size_t size,
                                        void *request) noexcept {
  const std::size_t bytes = unit * size;
  return static_cast<CurlRequest *>(request)->takeHeaderLine(line, bytes) ? bytes : 0;
}

bool CurlRequest::takeHeaderLine(const char *line, std::size_t size) {
  headerSize_ += size;
  if (headerSize_ > maximumHeaderSize) return false;
  const std::string_view text(line, size);
  if (status_ || (text != "\r\n" && text != "\n")) return true;

  long status = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
  if (status < 200) return true;
  headerCompleted_ = Clock::now();
  redirectsBeforeHeader_ = redirects();
  if (!isFollowed(status)) status_ = status;
  // Nobody reads such a body, which would be taken for the beginning of the next answer.
  if ((status == 204 || status == 304) && announcesBody()) {
    curl_easy_setopt(easy_.get(), CURLOPT_FORBID_REUSE, 1L);
  }
  return true;
}

bool CurlRequest::isFollowed(long status) const {
  if (!followsRedirects_ || status < 300 || status > 399) return false;
  curl_header *location = nullptr;
  for (std::size_t i = 0;
       curl_easy_header(easy_.get(), "Location", i, CURLH_HEADER, latestResponse, &location) == CURLHE_OK;
       ++i) {
    if (!valueOf(*location).empty()) return true;
  }
  return false;
}

bool CurlRequest::announcesBody() const {
  curl_header *field = nullptr;
  const auto has = [&](const char *name) {
    return curl_easy_header(easy_.get(), name, 0, CURLH_HEADER, latestResponse, &field) == CURLHE_OK;
  };
  return has("Transfer-Encoding") || (has("Content-Length") && valueOf(*field) != "0");
}

std::size_t CurlRequest::bodyCallback(char *, std::size_t unit, std::size_t size, void *) noexcept {
  return unit * size;
}

int CurlRequest::debugCallback(CURL *, curl_infotype type, char *, std::size_t, void *request) noexcept {
  // All the rest is bytes that went through a connection, those of the TLS handshake included.
  if (type == CURLINFO_TEXT) return 0;
  static_cast<CurlRequest *>(request)->lastProgress_ = Clock::now();
  static_cast<CurlRequest *>(request)->hasProgressed_ = true;
  return 0;
}

}  // namespace kx
