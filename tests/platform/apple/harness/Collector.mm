#include "tests/platform/apple/harness/Collector.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/platform/apple/harness/StandInDevice.h"

namespace kx {

Collector::Collector(const std::vector<std::string> &arguments) {
  std::vector<std::string> command = {KX_COLLECTOR_PROGRAM, "--json",         "--port", "0",
                                      "--directory",        directory_.path()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  program_ = std::make_unique<ChildProcess>(command);
  EXPECT_TRUE(eventually([this] { return !events().empty(); })) << program_->errors();
  where_ = events().front();
  standin::network().certificateAuthorityFile = where_.value("caFile", "");
}

std::string Collector::hostname() const {
  return "localhost:" + std::to_string(where_.value("port", 0));
}

std::vector<Collector::Document> Collector::requests(const std::string &endpoint) const {
  std::vector<Document> found;
  for (const Document &event : events()) {
    if (event.value("endpoint", "") == endpoint) found.push_back(event);
  }
  return found;
}

std::vector<Collector::Document> Collector::events() const {
  std::vector<Document> events;
  std::istringstream lines(program_->output());
  std::string line;
  while (std::getline(lines, line) && !lines.eof()) events.push_back(Document::parse(line));
  return events;
}

}  // namespace kx
