#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <memory>
#include <thread>

#include "platform/linux/bus/FileDescriptor.h"
#include "tests/fuzz/Fuzzing.h"
#include "tools/collector/CertificateAuthority.h"
#include "tools/collector/Server.h"

// Whatever a client sends through TLS, the collector's server ends the connection, and takes the next one.

namespace kx::collector {
namespace {

class SilentEventLog : public EventLog {
 public:
  void listening(const ListeningAddress &) override {}
  void received(const std::string &, const Request &, const Answer &answer) override {
    // An unknown coding is not implemented, as HTTP calls it.
    require(answer.status >= 200 && (answer.status < 500 || answer.status == 501),
            "a client's fault is a client's");
  }
  void failed(const std::string &, const std::string &) override {}
};

/// A server of its own thread, for as long as the process lives.
struct RunningServer {
  RunningServer() {
    std::signal(SIGPIPE, SIG_IGN);  // which is the client's, below
    std::thread([this] { server.run(); }).detach();
  }

  const PemCertificate certificate = CertificateAuthority("Fuzzed").issue(
      {"localhost"}, std::chrono::system_clock::now() - std::chrono::hours(1),
      std::chrono::system_clock::now() + std::chrono::hours(24));
  boost::asio::io_context io;
  boost::asio::ssl::context tls = tlsContext(certificate.certificate, certificate.privateKey);
  CollectionService service{CollectionServiceSettings()};
  SilentEventLog log;
  Server server{io, tls, service, log, {boost::asio::ip::address_v4::loopback(), 0}};
};

/// Repeats what the search's own clock has interrupted.
template <class Step>
int uninterrupted(SSL &tls, Step step) {
  while (true) {
    const int result = step();
    const int error = SSL_get_error(&tls, result);
    if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE) return result;
  }
}

/// Says `bytes` and its farewell, and waits until the server has ended the connection.
void talk(std::uint16_t port, const std::uint8_t *bytes, std::size_t size) {
  static SSL_CTX *const context = SSL_CTX_new(TLS_client_method());
  const FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  require(connect(socket.number(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0,
          "the server takes connections");
  const int atOnce = 1;
  setsockopt(socket.number(), IPPROTO_TCP, TCP_NODELAY, &atOnce, sizeof atOnce);
  const std::unique_ptr<SSL, void (*)(SSL *)> tls(SSL_new(context), &SSL_free);
  SSL_set_fd(tls.get(), socket.number());
  require(uninterrupted(*tls, [&] { return SSL_connect(tls.get()); }) == 1, "the server shakes hands");
  if (size > 0) uninterrupted(*tls, [&] { return SSL_write(tls.get(), bytes, static_cast<int>(size)); });
  SSL_shutdown(tls.get());
  std::array<char, 4096> rest;
  while (recv(socket.number(), rest.data(), rest.size(), 0) > 0 || errno == EINTR) errno = 0;
}

}  // namespace
}  // namespace kx::collector

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
  static auto *const running = new kx::collector::RunningServer;
  kx::collector::talk(running->server.port(), bytes, size);
  return 0;
}
