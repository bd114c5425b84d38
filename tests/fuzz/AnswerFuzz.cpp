#include <cstdio>
#include <fstream>
#include <future>

#include "platform/linux/https/CurlURLSession.h"
#include "tests/fuzz/Fuzzing.h"
#include "tests/platform/linux/https/TestDispatch.h"
#include "tests/platform/linux/https/TestServer.h"
#include "tests/platform/linux/network/NetworkNamespace.h"
#include "tests/support/ChildProcess.h"

// Whatever a server answers over real TLS, a request has one outcome, and the next one is answered.

namespace kx {
namespace {

struct Outcome {
  std::shared_ptr<HTTPURLResponse> response;
  bool isError = false;
};

class Client {
 public:
  Client() {
    std::ofstream(directory.path() + "/authority.pem") << authority.certificate().certificate;
    CurlSettings settings;
    settings.certificateAuthorityFile = directory.path() + "/authority.pem";
    settings.certificateDirectory = directory.path();
    settings.certificateBundle = settings.certificateAuthorityFile;  // the system's would be most of the work
    settings.timeoutWithoutProgress = std::chrono::seconds(2);
    settings.bodyTime = std::chrono::milliseconds(100);
    service = std::make_unique<CurlURLSessionService>(dispatch, settings);
  }

  /// A server keeps what it was asked, and its threads: it must not be asked for ever.
  void takeFreshServer() {
    if (requests++ % 200 != 0) return;
    const auto now = std::chrono::system_clock::now();
    server = std::make_unique<TestServer>(
        authority.issue({"localhost"}, now - std::chrono::hours(1), now + std::chrono::hours(24)));
  }

  Outcome send() {
    const auto session = service->sessionWithDefaultConfiguration();
    URLRequest request(service->URLWithString(server->url()).value());
    request.HTTPMethod = "POST";
    auto outcome = std::make_shared<std::promise<Outcome>>();
    session
        ->uploadTaskWithRequest(
            request, Data{'{', '}'},
            [outcome](const std::shared_ptr<URLResponse> &response, const std::optional<Error> &error) {
              outcome->set_value({std::dynamic_pointer_cast<HTTPURLResponse>(response), error.has_value()});
            })
        ->resume();
    session->finishTasksAndInvalidate();
    return outcome->get_future().get();  // a second one would throw, and end the process
  }

  const collector::CertificateAuthority authority{"Fuzzed"};
  const TemporaryDirectory directory;
  TestDispatch dispatch;
  std::unique_ptr<CurlURLSessionService> service;
  std::unique_ptr<TestServer> server;
  int requests = 0;
};

}  // namespace
}  // namespace kx

/// An answer may send the request anywhere: here nothing is anywhere but this machine.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  constexpr int skipped = 77;
  if (const auto problem = kx::NetworkNamespace::enter()) {
    std::fprintf(stderr, "There can be no network of its own here: %s\n", problem->c_str());
    std::_Exit(skipped);
  }
  kx::NetworkNamespace::ip("link set lo up");
  return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static auto *const client = new kx::Client;
  client->takeFreshServer();
  const std::string answer(reinterpret_cast<const char *>(bytes), size);
  // On whatever connections it takes, also where it is sent on to this server.
  client->server->setScript([answer](kx::TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.send(answer);
    connection.close();
  });
  client->server->interruptAll();  // the connection that is kept has another script
  const kx::Outcome outcome = client->send();
  kx::require((outcome.response != nullptr) != outcome.isError, "there is an answer or an error");
  if (outcome.response) {
    kx::require(outcome.response->statusCode() >= 200 && outcome.response->statusCode() <= 999,
                "a status is a final one");
  }
  client->server->setScript(&kx::TestServer::serve);
  client->server->interruptAll();
  const kx::Outcome next = client->send();
  kx::require(next.response != nullptr && next.response->statusCode() == 200, "the next request is answered");
  return 0;
}
