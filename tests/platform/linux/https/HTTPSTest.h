#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/https/CurlURLSession.h"
#include "tests/platform/linux/https/TestDispatch.h"
#include "tests/platform/linux/https/TestServer.h"
#include "tests/support/ChildProcess.h"

namespace kx {

/// A test of the URL sessions, with a server that they trust.
class HTTPSTest : public ::testing::Test {
 protected:
  struct Outcome {
    std::shared_ptr<HTTPURLResponse> response;
    std::optional<Error> error;
    std::thread::id thread;  ///< that told it
    std::string threadName;
    std::chrono::milliseconds duration{};  ///< since the request was made

    long status() const { return response == nullptr ? 0 : response->statusCode(); }
    std::string field(const std::string &name) const;
    long errorCode() const { return error ? error->code : 0; }
    std::string errorText() const { return error ? error->localizedDescription : ""; }
  };

  // Of curl's errors.
  static constexpr long couldNotResolve = 6;
  static constexpr long couldNotConnect = 7;
  static constexpr long timedOut = 28;

  HTTPSTest();

  /// A certificate of the authority for localhost, valid now.
  collector::PemCertificate certificate() const;
  collector::PemCertificate certificateFor(const std::vector<std::string> &names) const;

  /// Made at its first use, with `settings` as they are then.
  CurlURLSessionService &service();

  static URLRequest request(const std::string &url, HTTPHeaderFields fields = {});
  /// A task that leaves its outcome in `outcomes`.
  std::shared_ptr<URLSessionUploadTask> task(const URLRequest &request,
                                             std::optional<Data> body = Data{'{', '}'});
  std::shared_ptr<URLSessionUploadTask> taskOf(URLSession &session, const URLRequest &request,
                                               std::optional<Data> body = Data{'{', '}'});
  std::vector<Outcome> waitForOutcomes(std::size_t count);
  /// Waits until there are more than that; false when there are not after all that patience.
  bool waitForMoreOutcomes(std::size_t than);
  /// Sends one request and waits for what becomes of it.
  Outcome send(const URLRequest &request, std::optional<Data> body = Data{'{', '}'});
  Outcome post(const std::string &url) { return send(request(url)); }
  /// The same with a service of the test's own.
  Outcome sendBy(URLSessionService &service, const URLRequest &request,
                 std::optional<Data> body = Data{'{', '}'});

  std::vector<Outcome> outcomes();
  std::size_t outcomesCount();
  /// The program that stands beside this one under its name, but for the last word.
  static std::string programBeside(const std::string &lastWord);
  /// How many threads of that name the process has.
  static int threadsNamed(const std::string &name);

  const TemporaryDirectory directory;
  const collector::CertificateAuthority authority{"Test authority"};
  CurlSettings settings;
  TestServer server{certificate()};
  TestDispatch dispatch;

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Outcome> outcomes_;
  std::unique_ptr<CurlURLSessionService> service_;
};

}  // namespace kx
