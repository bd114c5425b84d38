#include "tools/collector/Metrics.h"

#include <nlohmann/json.hpp>

#include "tools/collector/Options.h"

namespace kx::collector {

namespace {

/// The shortest text that is the same number, in every locale.
std::string textOf(double number) {
  return nlohmann::json(number).dump();
}

/// The lines of one metric after the other.
class Page {
 public:
  void begin(const std::string &name, const char *type, const char *help) {
    name_ = "kx_collector_" + name;
    text_ += "# HELP " + name_ + " " + help + "\n# TYPE " + name_ + " " + type + "\n";
  }
  void add(const std::string &labels, const std::string &value, const char *suffix = "") {
    text_ += name_ + suffix + (labels.empty() ? "" : "{" + labels + "}") + " " + value + "\n";
  }
  void one(const std::string &name, const char *type, const char *help, const std::string &value) {
    begin(name, type, help);
    add("", value);
  }
  const std::string &text() const { return text_; }

 private:
  std::string name_;
  std::string text_;
};

void add(const StreamStatistics &stream, Page &page) {
  page.one("stream_ready", "gauge", "Whether the stream takes messages.", stream.isReady ? "1" : "0");
  page.one("stream_waiting_messages", "gauge", "Messages that the stream has not acknowledged yet.",
           std::to_string(stream.waiting));
  page.one("stream_waiting_bytes", "gauge", "What these take in memory.", std::to_string(stream.waitingSize));
  page.begin("stream_messages_total", "counter", "Messages by what became of them.");
  page.add("outcome=\"acknowledged\"", std::to_string(stream.acknowledged));
  page.add("outcome=\"failed\"", std::to_string(stream.failed));
  page.add("outcome=\"turned_away\"", std::to_string(stream.turnedAway));
  page.one("stream_duplicates_total", "counter", "Acknowledged messages whose id the stream had already.",
           std::to_string(stream.duplicates));
  page.one("stream_repeated_total", "counter", "Attempts after a message's first one.",
           std::to_string(stream.repeated));
  page.begin("stream_acknowledgement_seconds", "histogram", "Time until the stream acknowledged a message.");
  std::uint64_t count = 0;
  for (std::size_t place = 0; place < stream.times.size(); ++place) {
    count += stream.times[place];
    const bool isLast = place == StreamStatistics::bounds.size();
    page.add("le=\"" + (isLast ? "+Inf" : textOf(StreamStatistics::bounds[place])) + "\"",
             std::to_string(count), "_bucket");
  }
  page.add("", textOf(stream.seconds), "_sum");
  page.add("", std::to_string(count), "_count");
}

}  // namespace

void Metrics::received(const std::string &client, const Request &request, const Answer &answer) {
  count(answer);
  next_.received(client, request, answer);
}

void Metrics::receive(const std::string &client, const Request &request, const Answer &answer,
                      const Kept &kept) {
  count(answer);
  next_.receive(client, request, answer, kept);
}

void Metrics::count(const Answer &answer) {
  const std::lock_guard<std::mutex> lock(mutex_);
  ++requests_[{answer.endpoint, answer.status}];
}

void Metrics::failed(const std::string &client, const std::string &reason) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++failures_;
  }
  next_.failed(client, reason);
}

void Metrics::setConnections(std::size_t count) {
  const std::lock_guard<std::mutex> lock(mutex_);
  connections_ = count;
}

std::string Metrics::text(const StreamStatistics *stream) const {
  Page page;
  page.begin("build_info", "gauge", "The collector's version.");
  page.add(std::string("version=\"") + version + "\"", "1");
  page.one("start_time_seconds", "gauge", "When it was started, in seconds since 1970.", textOf(started_));
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    page.one("connections", "gauge", "Connections that are open.", std::to_string(connections_));
    page.one("connection_failures_total", "counter", "Connections that came to nothing.",
             std::to_string(failures_));
    page.begin("requests_total", "counter", "Requests by endpoint and by the status of the answer.");
    for (const auto &[key, number] : requests_) {
      page.add(
          std::string("endpoint=\"") + nameOf(key.first) + "\",status=\"" + std::to_string(key.second) + "\"",
          std::to_string(number));
    }
  }
  if (stream != nullptr) add(*stream, page);
  return page.text();
}

}  // namespace kx::collector
