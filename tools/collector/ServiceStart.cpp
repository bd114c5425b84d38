#include "tools/collector/ServiceStart.h"

#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/host_name.hpp>
#include <csignal>
#include <exception>
#include <stdexcept>
#include <utility>

#include "tools/collector/CertificateDownload.h"
#include "tools/collector/CertificateStore.h"
#include "tools/collector/ListeningProblem.h"
#include "tools/collector/ServerNames.h"

namespace kx::collector {

namespace net = boost::asio;

namespace {

constexpr std::chrono::hours certificateLifetime{24 * 365};
constexpr std::chrono::seconds timeBetweenCounts{1};

ServerLimits limitsFrom(const Options &options) {
  ServerLimits limits;
  if (options.stream || options.maximumConnections) {
    // A balancer's address is that of all its clients.
    limits.maximumConnections = options.maximumConnections.value_or(connectionsWithStream);
    limits.maximumConnectionsPerAddress = limits.maximumConnections;
  }
  return limits;
}

net::ssl::context givenIdentity(const CertificateFiles &files) {
  try {
    return tlsContext(contentOf(files.certificate), contentOf(files.key));
  } catch (const std::exception &error) {
    throw BadArguments(std::string("--certificate and --key cannot be used: ") + error.what());
  }
}

}  // namespace

ListeningAddress addressToCall(const Options &options) {
  ListeningAddress where;
  const auto callable =
      callableAddresses(net::ip::make_address(options.address), interfaceAddresses(), outwardAddress());
  where.address = callable.front().to_string();
  for (auto other = callable.begin() + 1; other != callable.end(); ++other) {
    where.otherAddresses.push_back(other->to_string());
  }
  return where;
}

net::ssl::context identity(const Options &options, ListeningAddress &where,
                           CollectionServiceSettings &service) {
  if (options.certificate) {
    where.trustedFile = options.certificate->certificate.string();
    where.isAuthority = false;
    return givenIdentity(*options.certificate);
  }
  const CertificateStore store(options.directory ? *options.directory : CertificateStore::defaultDirectory());
  where.trustedFile = std::filesystem::absolute(store.authorityFile()).lexically_normal().string();
  const CertificateAuthority authority = options.newAuthority ? store.newAuthority() : store.authority();
  service.download.emplace(authority.certificate().certificate);
  const auto now = std::chrono::system_clock::now();
  // Made anew at each start, so that it is never too old and always fits the address.
  const PemCertificate certificate = authority.issue(
      serverNames(net::ip::make_address(options.address), net::ip::host_name(), interfaceAddresses()),
      now - std::chrono::hours(1), now + certificateLifetime);
  return tlsContext(certificate.certificate, certificate.privateKey);
}

std::unique_ptr<Server> listeningServer(net::io_context &io, net::ssl::context &tls,
                                        CollectionService &service, EventLog &log, const Options &options) {
  const net::ip::tcp::endpoint endpoint(net::ip::make_address(options.address), options.port);
  try {
    return std::make_unique<Server>(io, tls, service, log, endpoint, limitsFrom(options));
  } catch (const boost::system::system_error &error) {
    throw std::runtime_error(listeningProblem(endpoint, error.code(), "--port"));
  }
}

std::unique_ptr<PageServer> operationsServer(WebService &service, const Options &options,
                                             ListeningAddress &where) {
  if (!options.operationsPort) return nullptr;
  const net::ip::tcp::endpoint endpoint(net::ip::make_address(options.operationsAddress),
                                        *options.operationsPort);
  try {
    auto server = std::make_unique<PageServer>(service, endpoint);
    where.operations = "http://" + ListeningAddress::hostAndPort(options.operationsAddress, server->port());
    return server;
  } catch (const boost::system::system_error &error) {
    throw std::runtime_error(listeningProblem(endpoint, error.code(), "--operations-port"));
  }
}

Ending::Ending(net::io_context &io, Server &server, std::function<void()> begins)
    : io_(io), server_(server), begins_(std::move(begins)), signals_(io, SIGINT, SIGTERM) {
  wait();
}

void Ending::wait() {
  signals_.async_wait([this](boost::system::error_code error, int) {
    if (error) return;
    if (std::exchange(hasBegun_, true)) return io_.stop();
    begins_();
    server_.stop(longest, [this] { io_.stop(); });
    wait();
  });
}

Reading::Reading(net::io_context &io, const Options &options, net::ssl::context &tls,
                 CollectionService &service, std::function<void(const std::string &)> done)
    : options_(options), tls_(tls), service_(service), done_(std::move(done)), signals_(io) {
  // Whoever has nothing to read anew ends with its terminal, as usual.
  if (!options.tokenKeys && !options.certificate) return;
  signals_.add(SIGHUP);
  wait();
}

void Reading::wait() {
  signals_.async_wait([this](boost::system::error_code error, int) {
    if (error) return;
    read();
    wait();
  });
}

void Reading::read() {
  try {
    if (options_.certificate) {
      givenIdentity(*options_.certificate);  // has to be a pair before one of the two is used
      tls_.use_certificate_chain(net::buffer(contentOf(options_.certificate->certificate)));
      tls_.use_private_key(net::buffer(contentOf(options_.certificate->key)), net::ssl::context::pem);
    }
    if (options_.tokenKeys) service_.useTokenKeys(tokenKeysIn(*options_.tokenKeys));
  } catch (const std::exception &error) {
    return done_(error.what());
  }
  done_("");
}

void countConnections(net::steady_timer &timer, Server &server, Metrics &metrics) {
  metrics.setConnections(server.connections());
  timer.expires_after(timeBetweenCounts);
  timer.async_wait([&timer, &server, &metrics](boost::system::error_code error) {
    if (!error) countConnections(timer, server, metrics);
  });
}

}  // namespace kx::collector
