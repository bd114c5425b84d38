#include <utility>

#include "KXPublisher/platform/Platform.h"
#include "KXPublisher/platform/foundation/JSONSerialization.h"
#include "KXPublisher/platform/foundation/StringFormat.h"
#include "KXPublisher/transport/KXGzipUtility.h"
#include "KXPublisher/transport/KXNetworking.h"
#include "transport/KXServicePaths.h"

namespace kx {

namespace {

Data utf8Bytes(const std::string &text) {
  return Data(text.begin(), text.end());
}

URLRequest compressedJSONPost(URL url) {
  URLRequest request(std::move(url));
  request.setValue("application/json", "Content-Type");
  request.setValue("gzip", "Content-Encoding");
  request.HTTPMethod = "POST";
  return request;
}

}  // namespace

std::optional<URL> KXNetworking::urlForApiPath(const std::optional<std::string> &path,
                                               const std::optional<std::string> &hostname) {
  if (!path) return std::nullopt;
  const bool rooted = !path->empty() && path->front() == '/';
  const std::string rootedPath = rooted ? *path : stringWithFormat("/%@", {*path});
  return Platform::current().urlSessions().URLWithString(
      stringWithFormat("https://%@%@", {hostname, rootedPath}));
}

std::optional<std::string> KXNetworking::jsonForObject(const Value &object) {
  // Its text has every slash plain already.
  return JSONSerialization::dataWithJSONObject(object);
}

std::shared_ptr<URLSessionUploadTask> KXNetworking::apiUploadTaskForPath(
    const std::optional<std::string> &path, const std::optional<std::string> &hostname,
    const std::optional<Dictionary> &params, const std::shared_ptr<URLSession> &session,
    URLSession::CompletionHandler completionHandler) {
  if (!path || !params || session == nullptr) return nullptr;
  auto url = urlForApiPath(path, hostname);
  const auto json = jsonForObject(*params);
  if (!url || !json) return nullptr;
  return session->uploadTaskWithRequest(compressedJSONPost(*std::move(url)),
                                        KXGzipUtility::gzipData(utf8Bytes(*json)),
                                        std::move(completionHandler));
}

std::shared_ptr<URLSessionUploadTask> KXNetworking::feedUploadTaskForData(
    const std::optional<Data> &data, const std::optional<std::string> &hostname,
    const std::optional<std::string> &accessToken, const std::shared_ptr<URLSession> &session,
    URLSession::CompletionHandler completionHandler) {
  const auto path = feedPathLogData();
  if (session == nullptr || !accessToken || !data || !path) return nullptr;
  auto url = urlForApiPath(path, hostname);
  if (!url) return nullptr;
  URLRequest request = compressedJSONPost(*std::move(url));
  request.addValue(stringWithFormat("Bearer %@", {*accessToken}), "Authorization");
  return session->uploadTaskWithRequest(request, KXGzipUtility::gzipData(data), std::move(completionHandler));
}

}  // namespace kx
