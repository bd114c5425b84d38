#include "tools/collector/ListeningProblem.h"

#include <boost/asio/error.hpp>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "tools/collector/Document.h"
#include "tools/collector/ServerNames.h"

namespace kx::collector {

namespace fs = std::filesystem;
namespace net = boost::asio;

namespace {

/// The kernel's numbers of the sockets that listen on that port, from a table like /proc/net/tcp. Empty where
/// the system has none.
void addListeningSockets(const char *table, std::uint16_t port, std::set<std::string> &sockets) {
  constexpr const char *listening = "0A";
  std::ifstream input(table);
  std::string line;
  std::getline(input, line);  // the names of the columns
  while (std::getline(input, line)) {
    std::istringstream columns(line);
    std::string number, local, remote, state, queues, timer, retransmissions, user, timeout, inode;
    columns >> number >> local >> remote >> state >> queues >> timer >> retransmissions >> user >> timeout >>
        inode;
    const std::size_t colon = local.rfind(':');
    unsigned found = 0;
    if (!columns || state != listening || colon == std::string::npos) continue;
    std::from_chars(local.data() + colon + 1, local.data() + local.size(), found, 16);
    if (found == port) sockets.insert("socket:[" + inode + "]");
  }
}

/// Whether the process has one of them open. False, too, when it cannot be looked into.
bool hasOneOf(const fs::path &process, const std::set<std::string> &sockets) {
  std::error_code error;
  for (fs::directory_iterator file(process / "fd", error), end; !error && file != end;
       file.increment(error)) {
    std::error_code unreadable;
    if (sockets.count(fs::read_symlink(*file, unreadable).string()) != 0) return true;
  }
  return false;
}

std::string nameOf(const fs::path &process) {
  std::ifstream input(process / "comm");
  std::string name;
  std::getline(input, name);
  return quote(name);
}

std::string ownAddresses() {
  std::string list;
  for (const auto &address : interfaceAddresses()) list += (list.empty() ? "" : ", ") + address.to_string();
  return list;
}

}  // namespace

std::string listenersOn(std::uint16_t port) {
  std::set<std::string> sockets;
  addListeningSockets("/proc/net/tcp", port, sockets);
  addListeningSockets("/proc/net/tcp6", port, sockets);
  if (sockets.empty()) return "";
  std::string listeners;
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
    const std::string number = entry->path().filename().string();
    if (std::isdigit(static_cast<unsigned char>(number.front())) == 0) continue;
    if (!hasOneOf(entry->path(), sockets)) continue;
    listeners += (listeners.empty() ? "" : " and ") + nameOf(entry->path()) + " (process " + number + ")";
  }
  return listeners;
}

std::string listeningProblem(const net::ip::tcp::endpoint &endpoint, const boost::system::error_code &error,
                             const std::string &option) {
  const std::string port = std::to_string(endpoint.port());
  const std::string other = " another port with " + option + " N, or any free one with " + option + " 0";
  if (error == net::error::address_in_use) {
    const std::string listeners = listenersOn(endpoint.port());
    const std::string by =
        listeners.empty() ? ", by a program that this user cannot look into" : ", by " + listeners;
    return "port " + port + " of " + endpoint.address().to_string() + " is in use" + by +
           "\nEnd that, or take" + other + ".";
  }
  if (error == net::error::access_denied) {
    return "port " + port + " is for privileged programs only\nTake" + other + ".";
  }
  if (error == boost::system::errc::address_not_available) {
    return endpoint.address().to_string() + " is no address of this machine\nIt has " + ownAddresses() +
           "; --address 0.0.0.0 takes all of IPv4, --address :: all of them.";
  }
  return "cannot listen on port " + port + " of " + endpoint.address().to_string() + ": " + error.message();
}

}  // namespace kx::collector
