#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/host_name.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include "tools/collector/CertificateStore.h"
#include "tools/collector/CollectionService.h"
#include "tools/collector/EventLog.h"
#include "tools/collector/NextSteps.h"
#include "tools/collector/Options.h"
#include "tools/collector/PageServer.h"
#include "tools/collector/PageService.h"
#include "tools/collector/Recorder.h"
#include "tools/collector/Server.h"
#include "tools/collector/ServerNames.h"
#include "tools/collector/Store.h"

namespace net = boost::asio;
using namespace kx::collector;

namespace {

constexpr std::chrono::hours certificateLifetime{24 * 365};
constexpr std::chrono::seconds timeBetweenChecks{5};
constexpr std::uint16_t usualPagePort = 8080;
constexpr std::uint16_t pagePortsToTry = 20;

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

/// On the port that is asked for, or the first free one from the usual one on.
std::unique_ptr<PageServer> pageServer(PageService &service, const Options &options) {
  if (options.pagePort) return std::make_unique<PageServer>(service, *options.pagePort);
  for (std::uint16_t port = usualPagePort; port < usualPagePort + pagePortsToTry; ++port) {
    try {
      return std::make_unique<PageServer>(service, port);
    } catch (const boost::system::system_error &error) {
      if (error.code() != boost::system::errc::address_in_use) throw;
    }
  }
  return std::make_unique<PageServer>(service, std::uint16_t{0});
}

/// At its end nobody hears of changes any more.
struct WithoutNotice {
  Store &store;
  ~WithoutNotice() { store.onChange({}); }
};

CollectorStatus statusOf(const ListeningAddress &where) {
  CollectorStatus status;
  status.service = where.url();
  status.caFile = where.trustedFile;
  if (where.isAuthority) status.caCertificate = contentOf(where.trustedFile);
  status.nextSteps = nextSteps(where);
  return status;
}

/// Now, and again and again.
void checkLogins(net::steady_timer &timer, Recorder &recorder) {
  recorder.checkLogins(std::chrono::steady_clock::now());
  timer.expires_after(timeBetweenChecks);
  timer.async_wait([&timer, &recorder](boost::system::error_code error) {
    if (!error) checkLogins(timer, recorder);
  });
}

void collect(const Options &options) {
  ListeningAddress where;
  where.address = options.address;
  net::ssl::context tls = identity(options, where);
  Store store(options.database, options.keep);
  CollectionService service(options.service);
  for (const std::string &id : store.latestEventIds(options.keep)) service.remember(id);
  const auto log = eventLog(options.json);
  Recorder recorder(*log, store);

  net::io_context io;
  net::signal_set signals(io, SIGINT, SIGTERM);
  signals.async_wait([&io](boost::system::error_code, int) { io.stop(); });
  Server server(io, tls, service, recorder, {net::ip::make_address(options.address), options.port});
  where.port = server.port();
  net::steady_timer everyFewSeconds(io);
  checkLogins(everyFewSeconds, recorder);
  PageService pageService(store, service.faults(), statusOf(where));
  std::unique_ptr<PageServer> page;
  if (options.page) {
    page = pageServer(pageService, options);
    where.page = page->url();
    where.pageToken = pageService.token();
    store.onChange([&page] { page->wake(); });
  }
  const WithoutNotice afterwards{store};
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
