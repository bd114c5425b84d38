#include "tests/platform/linux/https/HTTPSTest.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <utility>

namespace kx {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds patience(45);

}  // namespace

std::string HTTPSTest::Outcome::field(const std::string &name) const {
  if (response == nullptr) return "";
  const auto found = response->allHeaderFields().find(name);
  return found == response->allHeaderFields().end() ? "" : found->second;
}

HTTPSTest::HTTPSTest() {
  settings.proxy = CurlProxy(Environment({}));
  settings.certificateAuthorityFile = directory.path() + "/authority.pem";
  std::ofstream(*settings.certificateAuthorityFile) << authority.certificate().certificate;
}

collector::PemCertificate HTTPSTest::certificate() const {
  return certificateFor({"localhost", "127.0.0.1", "::1"});
}

collector::PemCertificate HTTPSTest::certificateFor(const std::vector<std::string> &names) const {
  const auto now = std::chrono::system_clock::now();
  return authority.issue(names, now - std::chrono::hours(1), now + std::chrono::hours(24));
}

CurlURLSessionService &HTTPSTest::service() {
  if (service_ == nullptr) service_ = std::make_unique<CurlURLSessionService>(dispatch, settings);
  return *service_;
}

URLRequest HTTPSTest::request(const std::string &url, HTTPHeaderFields fields) {
  URLRequest request(URL{url});
  request.HTTPMethod = "POST";
  request.allHTTPHeaderFields = std::move(fields);
  return request;
}

std::shared_ptr<URLSessionUploadTask> HTTPSTest::task(const URLRequest &request, std::optional<Data> body) {
  return taskOf(*service().sessionWithDefaultConfiguration(), request, std::move(body));
}

std::shared_ptr<URLSessionUploadTask> HTTPSTest::taskOf(URLSession &session, const URLRequest &request,
                                                        std::optional<Data> body) {
  const auto start = std::chrono::steady_clock::now();
  return session.uploadTaskWithRequest(
      request, std::move(body),
      [this, start](const std::shared_ptr<URLResponse> &response, const std::optional<Error> &error) {
        EXPECT_NE(response == nullptr, !error.has_value());
        const auto duration =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
        std::array<char, 16> threadName{};
        pthread_getname_np(pthread_self(), threadName.data(), threadName.size());
        // Notified under the lock: once it is free, the test may be over and all this be gone.
        const std::lock_guard<std::mutex> lock(mutex_);
        outcomes_.push_back({std::dynamic_pointer_cast<HTTPURLResponse>(response), error,
                             std::this_thread::get_id(), threadName.data(), duration});
        changed_.notify_all();
      });
}

std::vector<HTTPSTest::Outcome> HTTPSTest::waitForOutcomes(std::size_t count) {
  std::unique_lock<std::mutex> lock(mutex_);
  EXPECT_TRUE(changed_.wait_for(lock, patience, [this, count] { return outcomes_.size() >= count; }))
      << outcomes_.size() << " of " << count;
  std::vector<Outcome> outcomes = outcomes_;
  outcomes.resize(std::max(count, outcomes.size()));
  return outcomes;
}

bool HTTPSTest::waitForMoreOutcomes(std::size_t than) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, patience, [this, than] { return outcomes_.size() > than; });
}

HTTPSTest::Outcome HTTPSTest::send(const URLRequest &request, std::optional<Data> body) {
  return sendBy(service(), request, std::move(body));
}

HTTPSTest::Outcome HTTPSTest::sendBy(URLSessionService &service, const URLRequest &request,
                                     std::optional<Data> body) {
  const std::size_t before = outcomes().size();
  taskOf(*service.sessionWithDefaultConfiguration(), request, std::move(body))->resume();
  return waitForOutcomes(before + 1).back();
}

std::vector<HTTPSTest::Outcome> HTTPSTest::outcomes() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return outcomes_;
}

std::size_t HTTPSTest::outcomesCount() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return outcomes_.size();
}

std::string HTTPSTest::programBeside(const std::string &lastWord) {
  const std::string own = fs::read_symlink("/proc/self/exe").string();
  return own.substr(0, own.rfind('-') + 1) + lastWord;
}

int HTTPSTest::threadsNamed(const std::string &name) {
  int count = 0;
  std::error_code error;
  for (const auto &thread : fs::directory_iterator("/proc/self/task", error)) {
    std::string line;
    std::getline(std::ifstream(thread.path() / "comm"), line);
    if (line == name) ++count;
  }
  return count;
}

}  // namespace kx
