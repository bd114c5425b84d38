#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <string>

#include "tools/collector/Metrics.h"
#include "tools/collector/Options.h"
#include "tools/collector/PageServer.h"
#include "tools/collector/Server.h"

namespace kx::collector {

/// How many clients a collector of a stream has at the same time, unless it is told.
constexpr std::size_t connectionsWithStream = 4096;

// What collectors of every kind begin with, and how they end. Each throws what main() reports.

/// Where the collector can be called when it listens where its options say; without the port.
ListeningAddress addressToCall(const Options &options);

/// The identity that the collector shows: the one that was given, or a new one from its own authority, whose
/// certificate can then be fetched from the service.
boost::asio::ssl::context identity(const Options &options, ListeningAddress &where,
                                   CollectionServiceSettings &service);

std::unique_ptr<Server> listeningServer(boost::asio::io_context &io, boost::asio::ssl::context &tls,
                                        CollectionService &service, EventLog &log, const Options &options);

/// Null if none is asked for.
std::unique_ptr<PageServer> operationsServer(WebService &service, const Options &options,
                                             ListeningAddress &where);

/// The first SIGINT or SIGTERM has everything answered that has come, for so long; another one ends it at
/// once.
class Ending {
 public:
  static constexpr std::chrono::seconds longest{10};

  /// `begins` is called at the first signal. All have to outlive the io_context's last handler.
  Ending(boost::asio::io_context &io, Server &server, std::function<void()> begins);

 private:
  void wait();

  boost::asio::io_context &io_;
  Server &server_;
  const std::function<void()> begins_;
  boost::asio::signal_set signals_;
  bool hasBegun_ = false;
};

/// SIGHUP has the keys of tokens and the certificate that was given read anew, for what comes from then on.
/// What cannot be read changes nothing.
class Reading {
 public:
  /// `done` is told the problem, or an empty text.
  Reading(boost::asio::io_context &io, const Options &options, boost::asio::ssl::context &tls,
          CollectionService &service, std::function<void(const std::string &problem)> done);

 private:
  void wait();
  void read();

  const Options &options_;
  boost::asio::ssl::context &tls_;
  CollectionService &service_;
  const std::function<void(const std::string &)> done_;
  boost::asio::signal_set signals_;
};

/// Has connections counted, now and every second.
void countConnections(boost::asio::steady_timer &timer, Server &server, Metrics &metrics);

}  // namespace kx::collector
