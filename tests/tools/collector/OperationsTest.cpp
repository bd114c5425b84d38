// What those see who run a collector: metrics, health, and a log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tests/tools/collector/Requests.h"
#include "tests/tools/collector/ServerFixture.h"
#include "tools/collector/Metrics.h"
#include "tools/collector/OperationsService.h"
#include "tools/collector/ServiceLog.h"

namespace kx::collector {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

Answer answered(Endpoint endpoint, unsigned status) {
  Answer answer;
  answer.endpoint = endpoint;
  answer.status = status;
  if (status >= 300) answer.reason = "because";
  return answer;
}

class MetricsTest : public ::testing::Test {
 protected:
  RecordingEventLog log;
  Metrics metrics{log};

  void expectLine(const std::string &line, const StreamStatistics &stream = {}) const {
    EXPECT_THAT("\n" + metrics.text(&stream), HasSubstr("\nkx_collector_" + line + "\n"));
  }
};

TEST_F(MetricsTest, CountRequestsByEndpointAndStatus) {
  metrics.received("", {}, answered(Endpoint::login, 200));
  int kept = 0;
  for (int count = 0; count < 2; ++count) {
    metrics.receive("", {}, answered(Endpoint::message, 200), [&kept](const EventLog::Keeping &) { ++kept; });
  }
  metrics.received("", {}, answered(Endpoint::message, 503));
  metrics.received("", {}, answered(Endpoint::unknown, 404));
  expectLine("requests_total{endpoint=\"login\",status=\"200\"} 1");
  expectLine("requests_total{endpoint=\"message\",status=\"200\"} 2");
  expectLine("requests_total{endpoint=\"message\",status=\"503\"} 1");
  expectLine("requests_total{endpoint=\"other\",status=\"404\"} 1");
  EXPECT_EQ(kept, 2);
  EXPECT_EQ(log.answers().size(), 5u);
}

TEST_F(MetricsTest, CountConnections) {
  metrics.setConnections(7);
  metrics.failed("", "why");
  expectLine("connections 7");
  expectLine("connection_failures_total 1");
  EXPECT_THAT(log.failures(), ::testing::ElementsAre("why"));
}

TEST_F(MetricsTest, TellOfTheStream) {
  StreamStatistics stream;
  stream.isReady = true;
  stream.waiting = 2;
  stream.waitingSize = 300;
  stream.acknowledged = 4;
  stream.failed = 5;
  stream.turnedAway = 6;
  stream.duplicates = 7;
  stream.repeated = 8;
  stream.seconds = 1.5;
  stream.times[0] = 1;
  stream.times[3] = 2;
  stream.times.back() = 1;
  expectLine("stream_ready 1", stream);
  expectLine("stream_waiting_messages 2", stream);
  expectLine("stream_waiting_bytes 300", stream);
  expectLine("stream_messages_total{outcome=\"acknowledged\"} 4", stream);
  expectLine("stream_messages_total{outcome=\"failed\"} 5", stream);
  expectLine("stream_messages_total{outcome=\"turned_away\"} 6", stream);
  expectLine("stream_duplicates_total 7", stream);
  expectLine("stream_repeated_total 8", stream);
  expectLine("stream_acknowledgement_seconds_bucket{le=\"0.001\"} 1", stream);
  expectLine("stream_acknowledgement_seconds_bucket{le=\"0.005\"} 1", stream);
  expectLine("stream_acknowledgement_seconds_bucket{le=\"0.01\"} 3", stream);
  expectLine("stream_acknowledgement_seconds_bucket{le=\"5.0\"} 3", stream);
  expectLine("stream_acknowledgement_seconds_bucket{le=\"+Inf\"} 4", stream);
  expectLine("stream_acknowledgement_seconds_sum 1.5", stream);
  expectLine("stream_acknowledgement_seconds_count 4", stream);
  EXPECT_THAT(metrics.text(nullptr), Not(HasSubstr("stream")));
}

TEST_F(MetricsTest, HaveATypeEach) {
  metrics.received("", {}, answered(Endpoint::login, 200));
  const StreamStatistics stream;
  std::istringstream lines(metrics.text(&stream));
  std::string described;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("# HELP ", 0) == 0) continue;
    if (line.rfind("# TYPE ", 0) == 0) {
      described = line.substr(7, line.find(' ', 7) - 7);
      EXPECT_THAT(line, ::testing::MatchesRegex("# TYPE kx_collector_[a-z_]+ (counter|gauge|histogram)"));
      continue;
    }
    EXPECT_EQ(line.rfind(described, 0), 0u) << line;
    EXPECT_THAT(line,
                ::testing::MatchesRegex("[a-z_]+(\\{[a-z]+=\"[^\"]+\"(,[a-z]+=\"[^\"]+\")*\\})? [-+.e0-9]+"));
  }
}

class OperationsServiceTest : public ::testing::Test {
 protected:
  std::string problem;
  OperationsService service{{[] { return std::string("the metrics\n"); }, [this] { return problem; }}};

  PageAnswer ask(const std::string &target, const std::string &method = "GET") {
    return service.answer({method, target, {}, ""}, {});
  }
};

TEST_F(OperationsServiceTest, TellsTheMetrics) {
  EXPECT_EQ(ask("/metrics").status, 200u);
  EXPECT_EQ(ask("/metrics").body, "the metrics\n");
  EXPECT_EQ(ask("/metrics?name=x").body, "the metrics\n");
  EXPECT_EQ(ask("/metrics").mediaType, "text/plain; version=0.0.4; charset=utf-8");
}

TEST_F(OperationsServiceTest, IsHealthyWhileItIsNotReady) {
  EXPECT_EQ(ask("/healthz").status, 200u);
  EXPECT_EQ(ask("/readyz").status, 200u);
  problem = "the stream is away";
  EXPECT_EQ(ask("/healthz").status, 200u);
  EXPECT_EQ(ask("/readyz").status, 503u);
  EXPECT_EQ(ask("/readyz").body, "the stream is away\n");
}

TEST_F(OperationsServiceTest, HasNothingElse) {
  EXPECT_EQ(ask("/").status, 404u);
  EXPECT_EQ(ask("/api/requests").status, 404u);
  EXPECT_EQ(ask("/metrics", "POST").status, 405u);
  EXPECT_EQ(ask("/healthz", "HEAD").status, 200u);
}

class ServiceLogTest : public ::testing::Test {
 protected:
  std::ostringstream output;
  ServiceLog log{output};

  Document line() const { return Document::parse(output.str()); }
};

TEST_F(ServiceLogTest, HasNoWordOfWhatIsAccepted) {
  log.received("c", messageRequest("token"), answered(Endpoint::message, 200));
  EXPECT_EQ(output.str(), "");
}

TEST_F(ServiceLogTest, TellsWhatIsRefusedAndNothingOfTheMessage) {
  const Request request = messageRequest("a-token");
  log.received("192.0.2.1:5", request, answered(Endpoint::message, 403));
  EXPECT_EQ(line().value("event", ""), "refused");
  EXPECT_EQ(line().value("level", ""), "warning");
  EXPECT_EQ(line().value("client", ""), "192.0.2.1:5");
  EXPECT_EQ(line().value("endpoint", ""), "message");
  EXPECT_EQ(line().value("status", 0), 403);
  EXPECT_EQ(line().value("reason", ""), "because");
  EXPECT_THAT(line().value("time", ""), ::testing::MatchesRegex("[-0-9]+T[:.0-9]+Z"));
  EXPECT_THAT(output.str(), Not(HasSubstr("a-token")));
}

TEST_F(ServiceLogTest, KeepsLinesShort) {
  Request request;
  request.method = std::string(8000, 'x');
  Answer answer = answered(Endpoint::unknown, 404);
  answer.reason = std::string(8000, 'y');
  log.received("c", request, answer);
  EXPECT_LT(output.str().size(), 1000u);
  output.str("");
  log.failed("c", std::string(8000, 'z'));
  EXPECT_LT(output.str().size(), 1000u);
  EXPECT_EQ(line().value("event", ""), "connection");
}

TEST_F(ServiceLogTest, TellsWhatChanges) {
  log.streamChanged(false, "it is away");
  EXPECT_EQ(line().value("event", ""), "stream");
  EXPECT_EQ(line().value("ready", true), false);
  EXPECT_EQ(line().value("level", ""), "warning");
  EXPECT_EQ(line().value("reason", ""), "it is away");
  output.str("");
  log.streamChanged(true, "");
  EXPECT_EQ(line().value("ready", false), true);
  EXPECT_EQ(line().value("level", ""), "info");
  output.str("");
  log.happened("readAnew", "no file");
  EXPECT_EQ(line().value("event", ""), "readAnew");
  EXPECT_EQ(line().value("level", ""), "warning");
  output.str("");
  log.happened("ended");
  EXPECT_EQ(line().value("level", ""), "info");
}

}  // namespace
}  // namespace kx::collector
