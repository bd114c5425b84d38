#include "tests/examples/host/HostFixture.h"

#include <sstream>

namespace kx {

using collector::Document;

std::unique_ptr<ChildProcess> startHost(const std::vector<std::string> &arguments) {
  std::vector<std::string> command = {KX_HOST_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return std::make_unique<ChildProcess>(
      command, std::vector<std::string>{"DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/bus",
                                        "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/bus",
                                        "DISPLAY=", "WAYLAND_DISPLAY=", "LC_ALL=C.UTF-8"});
}

std::unique_ptr<ChildProcess> startLonelyHost(std::vector<std::string> arguments) {
  arguments.insert(arguments.end(), {"--api-token", "T", "--hostname", "localhost:1"});
  return startHost(arguments);
}

Collector::Collector(const std::vector<std::string> &arguments) {
  std::vector<std::string> command = {KX_COLLECTOR_PROGRAM, "--json",         "--port", "0",
                                      "--directory",        directory_.path()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  program_ = std::make_unique<ChildProcess>(command);
  EXPECT_TRUE(eventually([this] { return !events().empty(); })) << program_->errors();
  where_ = events().front();
}

std::vector<std::string> Collector::argumentsForHosts() const {
  return {"--hostname", "localhost:" + std::to_string(where_.value("port", 0)), "--ca-file",
          where_.value("caFile", "")};
}

std::unique_ptr<ChildProcess> Collector::startClient(const std::string &applicationID,
                                                     const std::vector<std::string> &arguments) const {
  std::vector<std::string> all = argumentsForHosts();
  all.insert(all.end(), {"--api-token", "T", "--application-id", applicationID});
  all.insert(all.end(), arguments.begin(), arguments.end());
  return startHost(all);
}

std::vector<Document> Collector::logins(const std::string &applicationID) const {
  std::vector<Document> found;
  for (const Document &event : events()) {
    if (event.value("endpoint", "") != "login" || !event.contains("document")) continue;
    // The system's name, a full stop and the application's identifier.
    const std::string name = event["document"]["payload"].value("name", "");
    const std::string ending = "." + applicationID;
    if (name.size() >= ending.size() && name.substr(name.size() - ending.size()) == ending)
      found.push_back(event);
  }
  return found;
}

std::vector<Document> Collector::messages(const std::string &applicationID) const {
  std::vector<Document> found;
  for (const Document &event : events()) {
    if (event.value("endpoint", "") != "message") continue;
    // One whose token is refused has not been read.
    const bool isRefused = !event.contains("document");
    if (isRefused || event["document"][0].value("bundleId", "") == applicationID) found.push_back(event);
  }
  return found;
}

std::vector<Document> Collector::events() const {
  std::vector<Document> events;
  std::istringstream lines(program_->output());
  std::string line;
  while (std::getline(lines, line) && !lines.eof()) events.push_back(Document::parse(line));
  return events;
}

}  // namespace kx
