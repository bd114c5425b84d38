#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/system/error_code.hpp>
#include <cstdint>
#include <string>

namespace kx::collector {

/// Why nothing can listen there, and what to do about it, in words for whoever started the program. `option`
/// is the one that sets the port, "--port".
std::string listeningProblem(const boost::asio::ip::tcp::endpoint &endpoint,
                             const boost::system::error_code &error, const std::string &option);

/// The programs that listen on that port of this machine, as far as they can be known: "\"nginx\" (process
/// 17)". Empty when none is found, which may belong to another user.
std::string listenersOn(std::uint16_t port);

}  // namespace kx::collector
