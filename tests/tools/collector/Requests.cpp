#include "tests/tools/collector/Requests.h"

#include <zlib.h>

#include <algorithm>
#include <stdexcept>

#include "tools/collector/DocumentRules.h"
#include "tools/collector/Refusal.h"

namespace kx::collector {

namespace {

Request request(const char *path, const Document &document) {
  return {"POST",
          path,
          {{"Host", "localhost"}, {"Content-Type", "application/json"}, {"Content-Encoding", "gzip"}},
          gzip(document.dump())};
}

}  // namespace

bool isMessageDocument(const std::string &text) {
  try {
    checkMessageDocument(parseDocument(text));
    return true;
  } catch (const Refusal &) {
    return false;
  }
}

std::string gzip(const std::string &text) {
  z_stream stream{};
  if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("deflateInit2");
  }
  std::string packed(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef *>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  const int result = deflate(&stream, Z_FINISH);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) throw std::runtime_error("deflate");
  return packed;
}

Document loginDocument() {
  return {{"header", {{"typ", "JWT"}, {"alg", "HS256"}}},
          {"payload",
           {{"aud", Document::array({"localhost:8443"})},
            {"iss", "localhost:8443"},
            {"sub", "an API token"},
            {"name", "Linux.com.example.KXHost"}}}};
}

Document messageDocument() {
  return Document::array({{{"sdkName", "KXPublisher iOS"},
                           {"sdkVer", "v1.0"},
                           {"ips", Document::array({"10.0.0.1"})},
                           {"id", "B1C2"},
                           {"eventTime", 1700000000000},
                           {"ifa", "6D92078A-8246-4BA4-AE5B-76104861E7DC"}}});
}

Request loginRequest(const Document &document) {
  return request(CollectionService::loginPath, document);
}

Request messageRequest(const std::string &accessToken, const Document &document) {
  Request message = request(CollectionService::messagePath, document);
  message.fields.emplace_back("Authorization", "Bearer " + accessToken);
  return message;
}

void setField(Request &request, const std::string &name, const std::string &value) {
  removeField(request, name);
  request.fields.emplace_back(name, value);
}

void removeField(Request &request, const std::string &name) {
  auto &fields = request.fields;
  fields.erase(std::remove_if(fields.begin(), fields.end(),
                              [&name](const auto &field) { return field.first == name; }),
               fields.end());
}

}  // namespace kx::collector
