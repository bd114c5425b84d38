#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/host_name.hpp>
#include <boost/asio/signal_set.hpp>
#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include "tools/collector/CertificateStore.h"
#include "tools/collector/CollectionService.h"
#include "tools/collector/EventLog.h"
#include "tools/collector/Options.h"
#include "tools/collector/Server.h"
#include "tools/collector/ServerNames.h"

namespace net = boost::asio;
using namespace kx::collector;

namespace {

constexpr std::chrono::hours certificateLifetime{24 * 365};

/// The identity that the collector shows: the one that was given, or a new one from its own authority.
net::ssl::context identity(const Options &options, ListeningAddress &where) {
  if (options.certificate) {
    where.trustedFile = options.certificate->certificate.string();
    where.isAuthority = false;
    try {
      return tlsContext(contentOf(options.certificate->certificate), contentOf(options.certificate->key));
    } catch (const std::exception &error) {
      throw BadArguments(std::string("--certificate and --key cannot be used: ") + error.what());
    }
  }
  const CertificateStore store(options.directory ? *options.directory : CertificateStore::defaultDirectory());
  where.trustedFile = std::filesystem::absolute(store.authorityFile()).lexically_normal().string();
  const auto now = std::chrono::system_clock::now();
  // Made anew at each start, so that it is never too old and always fits the address.
  const PemCertificate certificate = store.authority().issue(
      serverNames(net::ip::make_address(options.address), net::ip::host_name(), interfaceAddresses()),
      now - std::chrono::hours(1), now + certificateLifetime);
  return tlsContext(certificate.certificate, certificate.privateKey);
}

std::unique_ptr<EventLog> eventLog(bool json) {
  if (json) return std::make_unique<JSONEventLog>(std::cout);
  return std::make_unique<PrettyEventLog>(std::cout, isatty(STDOUT_FILENO) == 1);
}

void collect(const Options &options) {
  ListeningAddress where;
  where.address = options.address;
  net::ssl::context tls = identity(options, where);
  CollectionService service(options.service);
  const auto log = eventLog(options.json);

  net::io_context io;
  net::signal_set signals(io, SIGINT, SIGTERM);
  signals.async_wait([&io](boost::system::error_code, int) { io.stop(); });
  Server server(io, tls, service, *log, {net::ip::make_address(options.address), options.port});
  where.port = server.port();
  log->listening(where);
  server.run();
}

}  // namespace

int main(int count, char **arguments) {
  // Whoever reads what is printed may leave; the service goes on.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    const Options options = optionsFrom(count, arguments);
    if (options.help) {
      printHelp(std::cout);
    } else {
      collect(options);
    }
    return 0;
  } catch (const BadArguments &error) {
    std::cerr << "kx-collector: " << error.what() << "\nSee kx-collector --help." << std::endl;
    return 2;
  } catch (const std::exception &error) {
    std::cerr << "kx-collector: " << error.what() << std::endl;
    return 1;
  }
}
