#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>

#include "platform/linux/bus/FileDescriptor.h"

namespace kx {

/// Listens, but has no place left for one more connection: the kernel lets who asks for one wait.
class FullListener {
 public:
  FullListener() {
    EXPECT_EQ(listen(listener_.number(), 0), 0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    auto *const any = reinterpret_cast<sockaddr *>(&address);
    EXPECT_EQ(getsockname(listener_.number(), any, &size), 0);
    port_ = ntohs(address.sin_port);
    EXPECT_EQ(connect(only_.number(), any, size), 0);
  }

  std::string url() const { return "https://127.0.0.1:" + std::to_string(port_) + "/"; }

 private:
  static FileDescriptor socket() { return FileDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

  FileDescriptor listener_ = socket();
  FileDescriptor only_ = socket();
  std::uint16_t port_ = 0;
};

}  // namespace kx
