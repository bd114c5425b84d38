#pragma once

#include <boost/asio/io_context.hpp>
#include <cstddef>
#include <set>
#include <string>

#include "tools/collector/EventLog.h"
#include "tools/collector/MessageStream.h"

namespace kx::collector {

/// Has accepted messages published, and answered only when the stream has them. Passes on to another log what
/// became of each request.
class StreamForwarder : public EventLog {
 public:
  /// How many applications have a subject of their own, each; the others share one. The stream's servers keep
  /// all subjects in memory, and anybody can make names up.
  static constexpr std::size_t maximumSubjects = 1000;

  /// On the thread that runs the io_context it has to be used, and there it uses `next`. All have to outlive
  /// it, and the stream's callbacks.
  StreamForwarder(EventLog &next, MessageStream &stream, std::string subject, boost::asio::io_context &io)
      : next_(next), stream_(stream), subject_(std::move(subject)), io_(io) {}

  void listening(const ListeningAddress &where) override { next_.listening(where); }
  void received(const std::string &client, const Request &request, const Answer &answer) override {
    next_.received(client, request, answer);
  }
  void receive(const std::string &client, const Request &request, const Answer &answer,
               const Kept &kept) override;
  void answered(const std::string &client, std::chrono::microseconds time) override {
    next_.answered(client, time);
  }
  void failed(const std::string &client, const std::string &reason) override { next_.failed(client, reason); }

 private:
  StreamMessage messageFor(const std::string &client, const Request &request, const Answer &answer);
  /// "kx.messages.app.com.example.Host"; "kx.messages.other" for what is no usual name of an application.
  std::string subjectFor(const std::string &application);

  EventLog &next_;
  MessageStream &stream_;
  const std::string subject_;
  boost::asio::io_context &io_;
  std::set<std::string> applications_;  // that have subjects of their own
};

}  // namespace kx::collector
