// A receiver of satellite navigation that is driven along a track: says where it is, as NMEA sentences, to
// whoever connects to its socket.

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "tools/simulated-drive/NmeaSentences.h"
#include "tools/simulated-drive/Track.h"

namespace {

using namespace kx::drive;
using Clock = std::chrono::steady_clock;

constexpr const char *usage =
    "usage: kx-simulated-drive [options] SOCKET [LATITUDE,LONGITUDE]...\n"
    "Drives along the waypoints, by default through Berlin from the Brandenburg Gate to Alexanderplatz and "
    "on, and\n"
    "says where it is to every program that connects to the Unix socket SOCKET: once a second, as NMEA 0183 "
    "(RMC and\n"
    "GGA). At the end of the track it stays there. Runs until it is ended.\n"
    "  --speed METRES     in a second; by default 14\n"
    "  --interval SECONDS between two positions; by default 1\n"
    "  --altitude METRES  by default 34\n";

const std::vector<Waypoint> throughBerlin = {
    {52.516275, 13.377704}, {52.517037, 13.388860}, {52.518611, 13.400833},
    {52.521918, 13.413215}, {52.523430, 13.431630}, {52.515833, 13.453611},
};

class BadArguments : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Options {
  std::string socket;
  std::vector<Waypoint> waypoints;
  double speed = 14;
  double interval = 1;
  double altitude = 34;
};

double number(const std::string &text, double least, double greatest) {
  char *end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || std::isnan(value) || value < least || value > greatest) {
    throw BadArguments("\"" + text + "\" is no number from " + std::to_string(least) + " to " +
                       std::to_string(greatest));
  }
  return value;
}

Waypoint waypoint(const std::string &text) {
  const std::size_t comma = text.find(',');
  if (comma == std::string::npos) throw BadArguments("\"" + text + "\" is no LATITUDE,LONGITUDE");
  return {number(text.substr(0, comma), -90, 90), number(text.substr(comma + 1), -180, 180)};
}

Options parse(const std::vector<std::string> &arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string &argument = arguments[i];
    const auto value = [&](double least, double greatest) {
      if (i + 1 == arguments.size()) throw BadArguments(argument + " needs a value");
      return number(arguments[++i], least, greatest);
    };
    if (argument == "--speed") {
      options.speed = value(0, 1000);
    } else if (argument == "--interval") {
      options.interval = value(0.01, 3600);
    } else if (argument == "--altitude") {
      options.altitude = value(-500, 10000);
    } else if (argument.rfind("--", 0) == 0) {
      throw BadArguments("there is no option " + argument);
    } else if (options.socket.empty()) {
      options.socket = argument;
    } else {
      options.waypoints.push_back(waypoint(argument));
    }
  }
  if (options.socket.empty()) throw BadArguments("SOCKET is missing");
  if (options.waypoints.empty()) options.waypoints = throughBerlin;
  return options;
}

int listeningSocket(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw BadArguments("the socket's path is too long: " + path);
  std::memcpy(address.sun_path, path.c_str(), path.size());
  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  unlink(path.c_str());  // left behind by an earlier drive
  if (descriptor < 0 || bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
      listen(descriptor, 4) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
  return descriptor;
}

/// Takes in whoever connects, until `end`.
void acceptUntil(Clock::time_point end, int listening, std::vector<int> &receivers) {
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0) return;
    pollfd ready{listening, POLLIN, 0};
    if (poll(&ready, 1, static_cast<int>(left.count())) <= 0) continue;
    const int receiver = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (receiver >= 0) receivers.push_back(receiver);
  }
}

void send(const std::string &text, std::vector<int> &receivers) {
  std::vector<int> remaining;
  for (const int receiver : receivers) {
    if (::send(receiver, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size())) {
      remaining.push_back(receiver);
    } else {  // it has gone, or does not listen
      close(receiver);
    }
  }
  receivers.swap(remaining);
}

[[noreturn]] void drive(const Options &options) {
  const Track track(options.waypoints);
  const int listening = listeningSocket(options.socket);
  std::cout << "listening on " << options.socket << std::endl;
  std::cout << std::fixed << std::setprecision(6);

  std::vector<int> receivers;
  const auto start = Clock::now();
  for (auto due = start;;
       due += std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.interval))) {
    acceptUntil(due, listening, receivers);
    const std::chrono::duration<double> driven = Clock::now() - start;
    const Fix fix = track.after(driven.count(), options.speed);
    send(nmeaSentences(fix, options.altitude, std::time(nullptr)), receivers);
    if (receivers.empty()) continue;
    std::cout << "at " << fix.position.latitude << "," << fix.position.longitude << std::endl;
  }
}

}  // namespace

int main(int count, char **arguments) {
  const std::vector<std::string> given(arguments + 1, arguments + count);
  if (given == std::vector<std::string>{"--help"}) {
    std::cout << usage;
    return 0;
  }
  try {
    drive(parse(given));
  } catch (const BadArguments &error) {
    std::cerr << "kx-simulated-drive: " << error.what() << "\n" << usage;
    return 2;
  } catch (const std::exception &error) {
    std::cerr << "kx-simulated-drive: " << error.what() << "\n";
    return 1;
  }
}
