#include "tools/collector/StreamProgram.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/post.hpp>
#include <cerrno>
#include <system_error>

#include "tools/collector/NATSStream.h"
#include "tools/collector/OperationsService.h"
#include "tools/collector/OutputQueue.h"
#include "tools/collector/ServiceLog.h"
#include "tools/collector/ServiceStart.h"
#include "tools/collector/StreamForwarder.h"

namespace kx::collector {

namespace net = boost::asio;

namespace {

constexpr rlim_t descriptorsBesidesClients = 128;

/// A server that runs out of descriptors cannot tell who may go.
void makeRoomForDescriptors(std::size_t connections) {
  rlimit limit{};
  const rlim_t needed = static_cast<rlim_t>(connections) + descriptorsBesidesClients;
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur >= needed) return;
  if (limit.rlim_max < needed) {
    throw std::runtime_error("--max-connections needs " + std::to_string(needed) +
                             " file descriptors, and this process may have " +
                             std::to_string(limit.rlim_max));
  }
  limit.rlim_cur = needed;
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
    throw std::system_error(errno, std::system_category(), "Cannot have more file descriptors");
  }
}

std::unique_ptr<NATSStream> streamFrom(const NATSStreamSettings &settings,
                                       NATSStream::StateChanged stateChanged) {
  try {
    return std::make_unique<NATSStream>(settings, std::move(stateChanged));
  } catch (const std::runtime_error &error) {
    throw BadArguments(error.what());
  }
}

}  // namespace

void collectForStream(const Options &options, const NATSStreamSettings &streamSettings) {
  CollectionServiceSettings settings = options.service;
  ListeningAddress where = addressToCall(options);
  net::ssl::context tls = identity(options, where, settings);
  makeRoomForDescriptors(options.maximumConnections.value_or(connectionsWithStream));
  net::io_context io(1);  // of one thread; outlives the stream, whose threads tell it what is acknowledged
  CollectionService service(settings);
  // Whoever reads what is printed may pause; the service goes on.
  OutputQueue output(STDOUT_FILENO, ServiceLog::leftOut);
  ServiceLog log(output);
  Metrics metrics(log);
  const auto stream = streamFrom(streamSettings, [&io, &log](bool isReady, const std::string &problem) {
    net::post(io, [&log, isReady, problem] { log.streamChanged(isReady, problem); });
  });
  StreamForwarder forwarder(metrics, *stream, streamSettings.subject, io);
  const auto server = listeningServer(io, tls, service, forwarder, options);
  where.port = server->port();

  std::atomic<bool> isEnding{false};
  OperationsService operations({[&metrics, &stream] {
                                  const StreamStatistics statistics = stream->statistics();
                                  return metrics.text(&statistics);
                                },
                                [&isEnding, &stream]() -> std::string {
                                  if (isEnding) return "it is about to end";
                                  return stream->statistics().isReady ? "" : "the stream is away";
                                }});
  const auto operationsPage = operationsServer(operations, options, where);
  const Ending ending(io, *server, [&isEnding, &log] {
    isEnding = true;
    log.happened("ending");
  });
  const Reading reading(io, options, tls, service,
                        [&log](const std::string &problem) { log.happened("readAnew", problem); });
  net::steady_timer everySecond(io);
  countConnections(everySecond, *server, metrics);
  log.listening(where);
  server->run();
  log.happened("ended");
}

}  // namespace kx::collector
