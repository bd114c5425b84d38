// The URL sessions beside libcurl driven by hand, over TLS on the loopback interface: many messages handed
// over at once, and single ones, far apart. Each side runs in processes of its own, by turns, so that the
// ratios hold on a machine whose speed drifts.

#include <curl/curl.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/https/CurlURLSession.h"
#include "platform/linux/threads/LinuxDispatch.h"
#include "tests/platform/linux/https/TestServer.h"
#include "tests/support/ChildProcess.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;
using Figures = std::map<std::string, double>;

constexpr int connections = 4;
constexpr std::size_t bodySize = 478;  // bytes, what gzip makes of a message with all keys
constexpr const char *path = "/api_v0_0_0/post_msg";
const std::string authorization = "Bearer " + std::string(64, 't');
constexpr const char *certificateDirectory = "/etc/ssl/certs";

std::size_t descriptors() {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

/// The most memory that the process has had, in KiB.
double mostMemory() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss);
}

double processorMilliseconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto milliseconds = [](const timeval &time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
  };
  return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

// ---- Children. Each prints its figures, "name value" a line.

void print(const std::string &name, double value) {
  std::printf("%s %f\n", name.c_str(), value);
}

/// What a host has of the library's: never destroyed.
struct Sessions {
  Sessions(std::string url, const std::string &authority, std::chrono::milliseconds linger)
      : url_(std::move(url)) {
    settings_.certificateAuthorityFile = authority;
    settings_.linger = linger;
    renew();
  }

  void renew() { service_ = std::make_unique<kx::CurlURLSessionService>(dispatch_, settings_); }

  void post() {
    kx::URLRequest request(kx::URL{url_ + path});
    request.HTTPMethod = "POST";
    request.allHTTPHeaderFields = {
        {"Content-Type", "application/json"}, {"Content-Encoding", "gzip"}, {"Authorization", authorization}};
    const auto session = service_->sessionWithDefaultConfiguration();
    session
        ->uploadTaskWithRequest(request, kx::Data(bodySize, 'x'),
                                [this](const std::shared_ptr<kx::URLResponse> &response, const auto &) {
                                  const std::lock_guard<std::mutex> lock(mutex_);
                                  if (response != nullptr) ++answered;
                                  ++ended;
                                  changed_.notify_one();
                                })
        ->resume();
    session->finishTasksAndInvalidate();
  }

  void waitUntilEnded(int count) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return ended >= count; });
  }

  std::atomic<int> answered{0};
  std::atomic<int> ended{0};

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  const std::string url_;
  kx::LinuxDispatch &dispatch_ = *new kx::LinuxDispatch(kx::LinuxRunLoop::of(g_main_context_default()));
  kx::CurlSettings settings_;
  std::unique_ptr<kx::CurlURLSessionService> service_;
};

void burstOfSessions(const std::string &url, const std::string &authority, int count) {
  Sessions &sessions = *new Sessions(url, authority, kx::CurlSettings().linger);
  std::size_t most = 0;
  const auto start = Clock::now();
  for (int i = 0; i < count; ++i) sessions.post();
  while (sessions.ended < count) {
    most = std::max(most, descriptors());
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  print("rate", count / Seconds(Clock::now() - start).count());
  print("answered", sessions.answered);
  print("descriptors", static_cast<double>(most) - 1);  // without the one that looks
  print("KiB", mostMemory());
}

/// A handle as a careful host would set it up.
CURL *handle(const std::string &url, const std::string &authority, curl_slist *fields,
             const std::string &body) {
  CURL *const easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_URL, (url + path).c_str());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_CAINFO, authority.c_str());
  curl_easy_setopt(easy, CURLOPT_CAPATH, certificateDirectory);
  curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, fields);
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.c_str());
  curl_easy_setopt(
      easy, CURLOPT_WRITEFUNCTION,
      +[](char *, std::size_t unit, std::size_t size, void *) { return unit * size; });
  return easy;
}

curl_slist *fields() {
  curl_slist *list = nullptr;
  for (const std::string &line :
       {std::string("Content-Type: application/json"), std::string("Content-Encoding: gzip"),
        "Authorization: " + authorization, std::string("Expect:")}) {
    list = curl_slist_append(list, line.c_str());
  }
  return list;
}

/// One thread, as the library has one, that hands each connection its next message when the last is answered.
void burstOfCurl(const std::string &url, const std::string &authority, int count) {
  const std::string body(bodySize, 'x');
  curl_slist *const lines = fields();
  int answered = 0;
  const auto start = Clock::now();
  curl_global_init(CURL_GLOBAL_DEFAULT);
  CURLM *const multi = curl_multi_init();
  int begun = 0;
  for (; begun < connections; ++begun) curl_multi_add_handle(multi, handle(url, authority, lines, body));
  for (int running = connections; running > 0;) {
    curl_multi_perform(multi, &running);
    int left = 0;
    while (const CURLMsg *const message = curl_multi_info_read(multi, &left)) {
      if (message->data.result == CURLE_OK) ++answered;
      CURL *const easy = message->easy_handle;
      curl_multi_remove_handle(multi, easy);
      if (begun++ < count) {
        curl_multi_add_handle(multi, easy);
        running = 1;
      } else {
        curl_easy_cleanup(easy);
      }
    }
    curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
  }
  print("rate", answered / Seconds(Clock::now() - start).count());
  print("answered", answered);
}

/// Reports far apart: what each costs once the thread and its connection have gone.
void spacedSessions(const std::string &url, const std::string &authority, int count, bool keeps) {
  Sessions &sessions = *new Sessions(url, authority, std::chrono::milliseconds(0));
  const auto postAndWait = [&sessions](int ended) {
    sessions.post();
    sessions.waitUntilEnded(ended);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  };
  postAndWait(1);
  const double before = processorMilliseconds();
  for (int i = 1; i <= count; ++i) {
    if (!keeps) sessions.renew();
    postAndWait(i + 1);
  }
  print("milliseconds", (processorMilliseconds() - before) / count);
}

void spacedCurl(const std::string &url, const std::string &authority, int count, bool keeps) {
  const std::string body(bodySize, 'x');
  curl_slist *const lines = fields();
  curl_global_init(CURL_GLOBAL_DEFAULT);
  CURLSH *const shared = curl_share_init();
  curl_share_setopt(shared, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  const auto post = [&] {
    std::thread([&] {
      CURL *const easy = handle(url, authority, lines, body);
      if (keeps) curl_easy_setopt(easy, CURLOPT_SHARE, shared);
      curl_easy_perform(easy);
      curl_easy_cleanup(easy);
    }).join();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  };
  post();
  const double before = processorMilliseconds();
  for (int i = 0; i < count; ++i) post();
  print("milliseconds", (processorMilliseconds() - before) / count);
}

int runChild(const std::vector<std::string> &arguments) {
  const std::string &what = arguments.at(2);
  const std::string &url = arguments.at(3);
  const std::string &authority = arguments.at(4);
  const int count = std::stoi(arguments.at(5));
  if (what == "burst of sessions") burstOfSessions(url, authority, count);
  if (what == "burst of curl") burstOfCurl(url, authority, count);
  if (what == "spaced sessions") spacedSessions(url, authority, count, false);
  if (what == "spaced sessions, resumed") spacedSessions(url, authority, count, true);
  if (what == "spaced curl") spacedCurl(url, authority, count, false);
  if (what == "spaced curl, resumed") spacedCurl(url, authority, count, true);
  std::fflush(stdout);
  std::_Exit(0);
}

// ---- The parent, which is the service, too.

class Service {
 public:
  Service() : server_(certificate()) {
    std::ofstream(authorityFile_) << authority_.certificate().certificate;
  }

  Figures run(const std::string &what, int count) {
    const int before = server_.connections();
    kx::ChildProcess child({"/proc/self/exe", "--child", what, server_.url("", "localhost"), authorityFile_,
                            std::to_string(count)});
    if (child.exitCode(std::chrono::seconds(300)) != 0)
      throw std::runtime_error(what + ": " + child.errors());
    Figures figures;
    std::istringstream lines(child.output());
    std::string name;
    for (double value = 0; lines >> name >> value;) figures[name] = value;
    figures["connections"] = server_.connections() - before;
    return figures;
  }

 private:
  kx::collector::PemCertificate certificate() const {
    const auto now = std::chrono::system_clock::now();
    return authority_.issue({"localhost"}, now - std::chrono::hours(1), now + std::chrono::hours(1));
  }

  const kx::TemporaryDirectory directory_;
  const std::string authorityFile_ = directory_.path() + "/authority.pem";
  const kx::collector::CertificateAuthority authority_{"Benchmark"};
  kx::TestServer server_;
};

double medianOf(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.at(values.size() / 2);
}

void compareBursts(Service &service, int rounds) {
  constexpr int count = 10'000;
  std::map<std::string, std::vector<double>> figures;
  for (int round = 0; round < rounds; ++round) {
    Figures ours = service.run("burst of sessions", count);
    const Figures curl = service.run("burst of curl", count);
    ours["ratio"] = ours.at("rate") / curl.at("rate");
    for (const auto &[name, value] : ours) figures[name].push_back(value);
  }
  std::printf("%d messages at once, beside a loop of libcurl on %d connections; medians of %d\n", count,
              connections, rounds);
  std::printf("  %-24s %8.2f\n", "messages a second, ratio", medianOf(figures["ratio"]));
  for (const char *name : {"rate", "answered", "connections", "descriptors", "KiB"}) {
    std::printf("  %-24s %8.0f\n", name, medianOf(figures[name]));
  }
}

void compareSpaced(Service &service, int rounds) {
  constexpr int count = 40;
  const std::array<const char *, 4> sides = {"spaced sessions", "spaced sessions, resumed", "spaced curl",
                                             "spaced curl, resumed"};
  std::map<std::string, std::vector<double>> figures;
  for (int round = 0; round < rounds; ++round) {
    const double base = service.run(sides[2], count).at("milliseconds");
    for (const char *side : sides) {
      const double time = service.run(side, count).at("milliseconds");
      figures[side].push_back(time);
      figures[std::string(side) + " ratio"].push_back(time / base);
    }
  }
  std::printf("processor time of one message on a new connection, and to libcurl's; medians of %d\n", rounds);
  for (const char *side : sides) {
    std::printf("  %-24s %8.2f ms %8.2f\n", side, medianOf(figures[side]),
                medianOf(figures[std::string(side) + " ratio"]));
  }
}

}  // namespace

int main(int argc, char **argv) {
  const std::vector<std::string> arguments(argv, argv + argc);
  if (argc == 6 && arguments[1] == "--child") return runChild(arguments);
  const int rounds = argc > 1 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 5;
  if (rounds <= 0) {
    std::fprintf(stderr, "usage: %s [number of rounds]\n", argv[0]);
    return 2;
  }
  Service service;
  compareBursts(service, rounds);
  compareSpaced(service, rounds);
  return 0;
}
