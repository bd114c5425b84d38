#pragma once

#include <ostream>
#include <string>

#include "tools/collector/EventLog.h"

namespace kx::collector {

/// For those who run a collector: JSON Lines of what goes wrong and of what changes, and nothing of what is
/// in messages or would let somebody in. Each has "time", "level" ("info", "warning") and "event".
class ServiceLog : public EventLog {
 public:
  static std::string leftOut(std::size_t count);

  explicit ServiceLog(std::ostream &output) : output_(output) {}

  void listening(const ListeningAddress &where) override;
  /// Only what was not accepted.
  void received(const std::string &client, const Request &request, const Answer &answer) override;
  void failed(const std::string &client, const std::string &reason) override;

  void streamChanged(bool isReady, const std::string &problem);
  /// Something that the collector did of itself; a problem makes a warning of it.
  void happened(const std::string &event, const std::string &problem = "");

 private:
  void print(const std::string &event, bool isWarning, Document members);

  std::ostream &output_;
};

}  // namespace kx::collector
