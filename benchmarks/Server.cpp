// The collection service for the benchmarks, on the loopback interface: it grants a token of 64 bytes, takes
// every message and resumes TLS sessions. Prints where it listens and whom its clients have to trust; a line
// on standard input asks for what has come so far.
//
// usage: kx-benchmark-server FILE-FOR-CERTIFICATES

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

#include "tests/platform/linux/https/TestServer.h"
#include "tools/collector/CertificateAuthority.h"

namespace {

constexpr const char *messagePath = "POST /api_v0_0_0/post_msg ";

bool isMessage(const std::string &request) {
  return request.rfind(messagePath, 0) == 0;
}

[[noreturn]] void serve(kx::TestConnection &connection) {
  const std::string granted = "Set-Authorization: " + std::string(64, 't') + "\r\n";
  connection.handshake();
  while (true) connection.answer(200, isMessage(connection.readRequest()) ? "" : granted);
}

void tellCounts(const kx::TestServer &server) {
  std::size_t messages = 0;
  std::size_t header = 0;
  for (const std::string &request : server.requests()) {
    if (!isMessage(request)) continue;
    ++messages;
    header = request.find("\r\n\r\n") + 4;
  }
  std::cout << "connections " << server.connections() << "\nresumed " << server.resumedHandshakes()
            << "\nmessages " << messages << "\nheader " << header << "\ndone" << std::endl;
}

}  // namespace

int main(int argc, char **argv) {
  const bool forgetful = argc == 3 && std::string(argv[2]) == "forgetful";
  if (argc != 2 && !forgetful) {
    std::fprintf(stderr, "usage: %s FILE-FOR-CERTIFICATE [forgetful]\n", argv[0]);
    return 2;
  }
  const kx::collector::CertificateAuthority authority("Benchmark");
  std::ofstream(argv[1]) << authority.certificate().certificate;
  const auto now = std::chrono::system_clock::now();
  kx::TestServer::Options options;
  options.grantsTickets = !forgetful;
  kx::TestServer server(
      authority.issue({"localhost"}, now - std::chrono::hours(1), now + std::chrono::hours(24)), options);
  server.setScript(&serve);
  std::cout << "port " << server.port() << "\ndone" << std::endl;
  for (std::string line; std::getline(std::cin, line);) tellCounts(server);
}
