#include "tests/tools/fleet/load/LoadFixture.h"

#include <fstream>
#include <sstream>

namespace kx::fleet {

LoadTest::LoadTest() {
  std::ofstream(authorityFile) << authority.certificate().certificate;
  std::ofstream(scenario)
      << R"({"devices": 20, "length": "24 h", "before": "1 h", "use": {"sessionsPerDay": 300,
    "sessionLength": "60 s", "newProcess": 0.5, "withoutIdentifier": 0.1}})";
  server.setScript(&serve);
}

bool LoadTest::isLogin(const std::string &request) {
  return request.find("do_login") < request.find("\r\n");
}

void LoadTest::serve(TestConnection &connection) {
  connection.handshake();
  while (true) {
    const bool login = isLogin(connection.readRequest());
    connection.answer(200, login ? "set-authorization: a token\r\n" : "");
  }
}

std::string LoadTest::read(const std::string &name) const {
  std::ostringstream text;
  text << std::ifstream(path(name)).rdbuf();
  return text.str();
}

collector::PemCertificate LoadTest::certificate() const {
  const auto now = std::chrono::system_clock::now();
  return authority.issue({"localhost", "127.0.0.1"}, now - std::chrono::hours(1),
                         now + std::chrono::hours(24));
}

std::unique_ptr<ChildProcess> LoadTest::start(std::vector<std::string> words) const {
  words.insert(words.begin(),
               {KX_FLEET_PROGRAM, "load", scenario, "--service", service(), "--ca-file", authorityFile});
  return std::make_unique<ChildProcess>(words);
}

std::optional<int> LoadTest::load(std::vector<std::string> words) {
  const auto program = start(std::move(words));
  const auto code = program->exitCode(std::chrono::seconds(120));
  output = program->output();
  errors = program->errors();
  return code;
}

}  // namespace kx::fleet
