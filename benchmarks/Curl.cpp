// A host that reports by libcurl, driven by hand, as a careful host without the library would: its
// certificates by their hashes, its requests on one thread of its own. script/bench tells it what to do.

#include <curl/curl.h>
#include <zlib.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/Commands.h"

namespace {

constexpr int connections = 4;
constexpr const char *certificateDirectory = "/etc/ssl/certs";
const std::string authorization = "Authorization: Bearer " + std::string(64, 't');
// What the library sends on a device without a modem, a position and a desktop entry.
const std::string message =
    R"([{"deviceCategory":"Other","make":"Example","model":"Phone","platform":"Linux","osVersion":"Debian 12",)"
    R"("name":"phone","ifa":"6D92078A-8246-4BA4-AE5B-76104861E7DC","dnt":0,"languages":["en"],"tzOffset":0,)"
    R"("connectionType":"WIFI","bundleId":"com.example.KXHost","sdkName":"KXPublisher iOS","sdkVer":"v1.0",)"
    R"("ips":["192.0.2.20"],"id":"0B8F5E5C-6F0B-4D2E-9A54-3B0B6B7C7C11","eventTime":1793800000000}])";

struct Target {
  std::string url;
  std::string authority;
  curl_slist *fields = nullptr;
  CURLSH *share = nullptr;
};

Target &target() {
  static Target &only = *new Target;
  return only;
}

std::string compressed() {
  std::array<char, 4096> room{};
  z_stream stream{};
  deflateInit2(&stream, -1, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
  stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(message.data()));
  stream.avail_in = static_cast<uInt>(message.size());
  stream.next_out = reinterpret_cast<Bytef *>(room.data());
  stream.avail_out = static_cast<uInt>(room.size());
  if (deflate(&stream, Z_FINISH) != Z_STREAM_END) std::abort();
  deflateEnd(&stream);
  return {room.data(), stream.total_out};
}

void setBody(CURL *easy, const std::string &body) {
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(easy, CURLOPT_COPYPOSTFIELDS, body.data());
}

CURL *handleFor(const std::string &body) {
  CURL *const easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_URL, target().url.c_str());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_CAINFO, target().authority.c_str());
  curl_easy_setopt(easy, CURLOPT_CAPATH, certificateDirectory);
  curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, target().fields);
  curl_easy_setopt(
      easy, CURLOPT_WRITEFUNCTION,
      +[](char *, std::size_t unit, std::size_t size, void *) { return unit * size; });
  setBody(easy, body);
  return easy;
}

/// HOSTNAME FILE-OF-CERTIFICATES
void start(const std::vector<std::string> &words) {
  target().url = "https://" + words.at(0) + "/api_v0_0_0/post_msg";
  target().authority = words.at(1);
  for (const std::string &line :
       {std::string("Content-Type: application/json"), std::string("Content-Encoding: gzip"), authorization,
        std::string("Expect:")}) {
    target().fields = curl_slist_append(target().fields, line.c_str());
  }
}

void send(const std::string &body, bool resumes) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  if (target().share == nullptr) {
    target().share = curl_share_init();
    curl_share_setopt(target().share, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  }
  CURL *const easy = handleFor(body);
  if (resumes) curl_easy_setopt(easy, CURLOPT_SHARE, target().share);
  if (curl_easy_perform(easy) != CURLE_OK) std::abort();
  curl_easy_cleanup(easy);
}

/// "fresh" or "resumed", on a connection of its own; "one" thread does it, or "three": one starts another
/// that compresses, and then one that sends, as in the library.
void report(const std::vector<std::string> &words) {
  const bool resumes = words.at(0) == "resumed";
  emptyCaches();
  tellProcessorTime();
  if (words.at(1) == "one") {
    std::thread([resumes] { send(compressed(), resumes); }).join();
  } else {
    std::thread([resumes] {
      std::string body;
      std::thread([&body] { body = compressed(); }).join();
      std::thread([&body, resumes] { send(body, resumes); }).join();
    }).join();
  }
}

/// COUNT messages: each connection has its next one when the last is answered.
void burst(const std::vector<std::string> &words) {
  const int count = std::stoi(words.at(0));
  int answered = 0;
  const double time = microseconds(CLOCK_MONOTONIC, [&] {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURLM *const multi = curl_multi_init();
    int begun = 0;
    for (; begun < connections; ++begun) curl_multi_add_handle(multi, handleFor(compressed()));
    for (int running = connections; running > 0;) {
      curl_multi_perform(multi, &running);
      int left = 0;
      while (const CURLMsg *const ended = curl_multi_info_read(multi, &left)) {
        if (ended->data.result == CURLE_OK) ++answered;
        CURL *const easy = ended->easy_handle;
        curl_multi_remove_handle(multi, easy);
        if (begun < count) {
          ++begun;
          setBody(easy, compressed());
          curl_multi_add_handle(multi, easy);
          running = 1;
        } else {
          curl_easy_cleanup(easy);
        }
      }
      if (running > 0) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
    curl_multi_cleanup(multi);
  });
  tell("rate", answered / (time / 1e6));
  tell("lost", count - answered);
}

}  // namespace

int main() {
  return obey({{"start", start}, {"report", report}, {"burst", burst}});
}
