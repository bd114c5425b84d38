#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tools/collector/Document.h"

namespace kx {

constexpr const char *someIdentifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";

/// kx-host, in a child process without a message bus, a display or a service that it could reach by accident.
std::unique_ptr<ChildProcess> startHost(const std::vector<std::string> &arguments);

/// With an API token, and with a host name at which nobody listens.
std::unique_ptr<ChildProcess> startLonelyHost(std::vector<std::string> arguments = {});

/// kx-collector on a free loopback port.
class Collector {
 public:
  explicit Collector(const std::vector<std::string> &arguments = {});

  /// What a host needs to reach it: "--hostname localhost:43210 --ca-file ...".
  std::vector<std::string> argumentsForHosts() const;

  /// A host that is one of its clients, as that application.
  std::unique_ptr<ChildProcess> startClient(const std::string &applicationID,
                                            const std::vector<std::string> &arguments) const;

  /// What it has taken so far, in the order of arrival: the requests for "login" or "message" of that
  /// application.
  std::vector<collector::Document> logins(const std::string &applicationID) const;
  std::vector<collector::Document> messages(const std::string &applicationID) const;

  /// All it has printed, for the message of a failing test.
  std::string transcript() const { return program_->output() + program_->errors(); }

 private:
  std::vector<collector::Document> events() const;

  TemporaryDirectory directory_;
  std::unique_ptr<ChildProcess> program_;
  collector::Document where_;
};

}  // namespace kx
