#include <unistd.h>

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/steady_timer.hpp>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/collector/CertificateDownload.h"
#include "tools/collector/CertificateStore.h"
#include "tools/collector/CollectionService.h"
#include "tools/collector/EventLog.h"
#include "tools/collector/ListeningProblem.h"
#include "tools/collector/Metrics.h"
#include "tools/collector/NextSteps.h"
#include "tools/collector/OperationsService.h"
#include "tools/collector/Options.h"
#include "tools/collector/OutputQueue.h"
#include "tools/collector/PagePassword.h"
#include "tools/collector/PageServer.h"
#include "tools/collector/PageService.h"
#include "tools/collector/QRCode.h"
#include "tools/collector/QuietEventLog.h"
#include "tools/collector/Recorder.h"
#include "tools/collector/Server.h"
#include "tools/collector/ServerNames.h"
#include "tools/collector/ServiceStart.h"
#include "tools/collector/Store.h"
#include "tools/collector/StreamProgram.h"

namespace net = boost::asio;
using namespace kx::collector;

namespace {

constexpr std::chrono::seconds timeBetweenChecks{5};
constexpr std::uint16_t usualPagePort = 8080;
constexpr int usualPagePorts = 20;

/// As https://no-color.org asks for; by terminals alone.
bool wantsColours() {
  const char *noColour = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe): nobody changes it
  return isatty(STDOUT_FILENO) == 1 && (noColour == nullptr || *noColour == '\0');
}

std::unique_ptr<EventLog> eventLog(bool json, std::ostream &output) {
  if (json) return std::make_unique<JSONEventLog>(output);
  return std::make_unique<PrettyEventLog>(output, wantsColours());
}

/// Whether other devices can call the service.
bool isReachable(const ListeningAddress &where) {
  return !net::ip::make_address(where.address).is_loopback();
}

/// What the developer can do next, below the first line.
void printNextSteps(const ListeningAddress &where, const std::optional<CertificateDownload> &download,
                    std::ostream &output) {
  output << nextStepsText(where);
  if (download && isReachable(where)) {
    const bool onTerminal = isatty(STDOUT_FILENO) == 1;
    output << downloadSteps(where, download->fingerprint(),
                            onTerminal ? qrCode(downloadURL(where), wantsColours()) : "");
  }
  output.flush();
}

/// On the port that is asked for, or the first free one from the usual one on.
std::unique_ptr<PageServer> pageServer(PageService &service, const Options &options) {
  const auto address = net::ip::make_address(options.pageAddress);
  const std::uint16_t first = options.pagePort.value_or(usualPagePort);
  const int portsToTry = options.pagePort ? 1 : usualPagePorts;
  for (int number = 0; number < portsToTry; ++number) {
    const net::ip::tcp::endpoint endpoint(address, static_cast<std::uint16_t>(first + number));
    try {
      return std::make_unique<PageServer>(service, endpoint);
    } catch (const boost::system::system_error &error) {
      const bool isTaken = error.code() == boost::system::errc::address_in_use;
      if (options.pagePort || !isTaken)
        throw std::runtime_error(listeningProblem(endpoint, error.code(), "--page-port"));
    }
  }
  return std::make_unique<PageServer>(service, net::ip::tcp::endpoint(address, 0));
}

/// The addresses by which the page can be called.
std::vector<net::ip::address> pageAddresses(const Options &options) {
  return callableAddresses(net::ip::make_address(options.pageAddress), interfaceAddresses(),
                           outwardAddress());
}

/// On loopback the page is for everybody on this machine; elsewhere for who has the password.
PageAccess pageAccess(const Options &options) {
  PageAccess access;
  for (const auto &address : pageAddresses(options)) {
    access.names.push_back(address.is_v6() ? "[" + address.to_string() + "]" : address.to_string());
  }
  if (options.pagePasswordFile) {
    access.password = passwordIn(*options.pagePasswordFile);
  } else if (!net::ip::make_address(options.pageAddress).is_loopback()) {
    access.password = newPassword();
  }
  return access;
}

/// At its end nobody hears of changes any more.
struct WithoutNotice {
  Store &store;
  ~WithoutNotice() { store.onChange({}); }
};

CollectorStatus statusOf(const ListeningAddress &where, const std::optional<CertificateDownload> &download) {
  CollectorStatus status;
  status.service = where.url();
  status.caFile = where.trustedFile;
  if (where.isAuthority) status.caCertificate = contentOf(where.trustedFile);
  status.nextSteps = hostLines(where);
  status.addresses.push_back(where.url());
  for (const std::string &address : where.otherAddresses) {
    status.addresses.push_back("https://" + ListeningAddress::hostAndPort(address, where.port));
  }
  if (download && isReachable(where)) {
    status.phone = PhoneSteps{downloadURL(where), download->fingerprint(), qrModules(downloadURL(where))};
  }
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
  CollectionServiceSettings settings = options.service;
  ListeningAddress where = addressToCall(options);
  net::ssl::context tls = identity(options, where, settings);
  net::io_context io(1);  // of one thread; outlives the store, whose thread tells it what is written
  Store store(options.database, options.keep);
  CollectionService service(settings);
  for (const std::string &id : store.latestEventIds(options.keep)) service.remember(id);
  // Whoever reads what is printed may pause; the service goes on.
  OutputQueue output(STDOUT_FILENO, options.json ? JSONEventLog::leftOut : PrettyEventLog::leftOut);
  const auto all = eventLog(options.json, output);
  QuietEventLog quiet(*all);
  EventLog &log = options.quiet ? quiet : *all;
  Recorder recorder(log, store);
  Metrics metrics(recorder);

  const auto server = listeningServer(io, tls, service, metrics, options);
  std::atomic<bool> isEnding{false};
  const Ending ending(io, *server, [&isEnding] { isEnding = true; });
  const Reading reading(io, options, tls, service, [&log](const std::string &problem) {
    if (!problem.empty()) log.failed("the operator", "nothing was read anew: " + problem);
  });
  where.port = server->port();
  net::steady_timer everyFewSeconds(io);
  checkLogins(everyFewSeconds, recorder);
  const PageAccess access = options.page ? pageAccess(options) : PageAccess();
  PageService pageService(store, service.faults(), statusOf(where, settings.download), access);
  std::unique_ptr<PageServer> page;
  if (options.page) {
    page = pageServer(pageService, options);
    where.page =
        "http://" + ListeningAddress::hostAndPort(pageAddresses(options).front().to_string(), page->port());
    where.pageToken = pageService.token();
    if (!options.pagePasswordFile) where.pagePassword = access.password.value_or("");
    store.onChange([&page] { page->wake(); });
  }
  const WithoutNotice afterwards{store};
  OperationsService operations({[&metrics] { return metrics.text(nullptr); },
                                [&isEnding] { return std::string(isEnding ? "it is about to end" : ""); }});
  const auto operationsPage = operationsServer(operations, options, where);
  net::steady_timer everySecond(io);
  countConnections(everySecond, *server, metrics);
  log.listening(where);
  if (!options.json && !options.quiet) printNextSteps(where, settings.download, output);
  server->run();
}

}  // namespace

int main(int count, char **arguments) {
  // Whoever reads what is printed may leave; the service goes on.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    Options options = optionsFrom(count, arguments);
    if (options.tokenKeys) options.service.tokenKeys = tokenKeysIn(*options.tokenKeys);
    if (options.help) {
      printHelp(std::cout);
    } else if (options.version) {
      std::cout << "kx-collector " << version << std::endl;
    } else if (options.stream) {
      collectForStream(options, *options.stream);
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
