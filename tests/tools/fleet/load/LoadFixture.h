#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/platform/linux/https/TestServer.h"
#include "tests/support/ChildProcess.h"
#include "tools/collector/CertificateAuthority.h"

namespace kx::fleet {

/// A test with a service on the loopback interface, and a fleet that is used much.
class LoadTest : public testing::Test {
 protected:
  LoadTest();

  static bool isLogin(const std::string &request);
  /// Answers logins with the token "a token", and all with 200, for ever.
  static void serve(TestConnection &connection);

  std::string path(const std::string &name) const { return directory.path() + "/" + name; }
  std::string read(const std::string &name) const;
  collector::PemCertificate certificate() const;
  std::string service() const { return "https://localhost:" + std::to_string(server.port()); }

  /// `kx-fleet load` with that scenario, that service and what trusts it.
  std::unique_ptr<ChildProcess> start(std::vector<std::string> words) const;
  std::optional<int> load(std::vector<std::string> words);

  const TemporaryDirectory directory;
  const collector::CertificateAuthority authority{"Test authority"};
  const std::string authorityFile = path("authority.pem");
  const std::string scenario = path("scenario.json");
  TestServer server{certificate()};
  std::string output;
  std::string errors;
};

}  // namespace kx::fleet
