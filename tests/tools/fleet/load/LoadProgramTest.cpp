// kx-fleet load as a whole.

#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "tests/tools/fleet/load/LoadFixture.h"

namespace kx::fleet {
namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

class LoadProgramTest : public LoadTest {
 protected:
  /// A load of seconds that has everything in it.
  std::optional<int> loadFor(std::vector<std::string> more, const char *duration = "2 s") {
    more.insert(more.begin(), {"--pace", "600", "--duration", duration, "--grace", "1 min"});
    more.insert(more.end(), {"--json", path("report.json")});
    const auto code = load(std::move(more));
    const std::string text = read("report.json");
    report = text.empty() ? Json() : Json::parse(text);
    return code;
  }
  std::uint64_t count(const char *what) const {
    return report["login"][what].get<std::uint64_t>() + report["message"][what].get<std::uint64_t>();
  }
  std::size_t received(bool logins) const {
    std::size_t count = 0;
    for (const std::string &request : server.requests()) count += isLogin(request) == logins ? 1U : 0U;
    return count;
  }

  Json report;
};

TEST_F(LoadProgramTest, SendsWhatItSaysThatItHasSent) {
  EXPECT_EQ(loadFor({"--results", path("results"), "--plot", path("plot.svg"), "--max", "errors=0%", "--max",
                     "shed=0%"}),
            0)
      << errors << output;
  EXPECT_GT(count("sent"), 20U);
  EXPECT_EQ(count("planned"), count("sent"));
  EXPECT_EQ(count("answered"), count("sent"));
  EXPECT_EQ(received(true),
            report["login"]["sent"].get<std::size_t>() + report["warmUp"]["done"].get<std::size_t>());
  EXPECT_EQ(received(false), report["message"]["sent"].get<std::size_t>());
  EXPECT_EQ(report["warmUp"]["done"], report["warmUp"]["wanted"]);
  EXPECT_EQ(report["login"]["statuses"]["200"], report["login"]["sent"]);
  EXPECT_GT(report["message"]["latency"]["p50"], 0);
  EXPECT_THAT(output, HasSubstr("nothing failed"));
  EXPECT_THAT(read("plot.svg"), HasSubstr(">Requests sent, a second</text>"));

  std::set<std::string> ids;
  std::istringstream results(read("results"));
  for (std::string line; std::getline(results, line);) {
    const Json result = Json::parse(line);
    EXPECT_EQ(result["status"], 200);
    ids.insert(result["id"].get<std::string>());
  }
  EXPECT_EQ(ids.size(), report["message"]["sent"].get<std::size_t>());
}

TEST_F(LoadProgramTest, HasDevicesThatHaveATokenLogInBefore) {
  std::ofstream(scenario)
      << R"({"devices": 20, "length": "24 h", "before": "2 h", "use": {"sessionsPerDay": 300,
    "sessionLength": "60 s", "newProcess": 0, "withoutIdentifier": 0}})";
  EXPECT_EQ(loadFor({}), 0) << errors;
  EXPECT_EQ(report["warmUp"]["done"], report["warmUp"]["wanted"]);
  EXPECT_EQ(report["login"]["planned"], 0);
  EXPECT_GT(report["message"]["sent"], 20);
  EXPECT_EQ(report["reportsWithoutToken"], 0);
}

TEST_F(LoadProgramTest, DealsDevicesOutOverServices) {
  TestServer other(certificate());
  other.setScript(&serve);
  EXPECT_EQ(loadFor({"--service", "https://localhost:" + std::to_string(other.port())}), 0) << errors;
  EXPECT_GT(server.requests().size(), 5U);
  EXPECT_GT(other.requests().size(), 5U);
  EXPECT_EQ(server.requests().size() + other.requests().size(),
            count("sent") + report["warmUp"]["done"].get<std::size_t>());
}

TEST_F(LoadProgramTest, FailsByItsBounds) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    while (true) {
      const bool login = isLogin(connection.readRequest());
      connection.answer(login ? 200 : 500, login ? "set-authorization: a token\r\n" : "");
    }
  });
  EXPECT_EQ(loadFor({"--max", "errors=1%", "--max", "login.p50=1min"}), 1);
  EXPECT_THAT(output, HasSubstr("errors=1%: exceeded"));
  EXPECT_THAT(output, HasSubstr("login.p50=1min: kept"));
  EXPECT_EQ(report["message"]["statuses"]["500"], report["message"]["sent"]);
  EXPECT_EQ(report["login"]["failed"], 0);
}

TEST_F(LoadProgramTest, LogsInAnewWhereATokenIsRefused) {
  std::ofstream(scenario)
      << R"({"devices": 10, "length": "24 h", "before": "1 h", "use": {"sessionsPerDay": 300,
    "sessionLength": "10 min", "newProcess": 0, "withoutIdentifier": 0}})";
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    while (true) {
      const bool login = isLogin(connection.readRequest());
      connection.answer(login ? 200 : 403, login ? "set-authorization: a token\r\n" : "");
    }
  });
  const auto program = start({"--pace", "300", "--duration", "10 min"});
  // None of the ten processes ever ends: some of these log in for the second time.
  EXPECT_TRUE(eventually([this] { return received(true) > 30; })) << program->errors();
}

/// Late answers shift nothing: as much is planned and sent when none comes as when all do.
TEST_F(LoadProgramTest, DoesNotSlowDownForAServiceThatDoes) {
  std::ofstream(scenario)
      << R"({"devices": 10, "length": "24 h", "before": "1 h", "use": {"sessionsPerDay": 300,
    "sessionLength": "30 s", "newProcess": 1, "withoutIdentifier": 1}})";
  ASSERT_EQ(loadFor({}), 0) << errors;
  const auto planned = count("planned");
  EXPECT_GT(planned, 10U);
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.stall();
  });
  EXPECT_EQ(loadFor({"--grace", "0 s"}), 3);
  EXPECT_THAT(errors, HasSubstr("nothing was answered"));
  EXPECT_EQ(count("sent"), planned);
  EXPECT_EQ(count("planned"), planned);
  EXPECT_EQ(report["login"]["problems"]["no answer by the end"], report["login"]["sent"]);
}

TEST_F(LoadProgramTest, MeasuresFromWhenThePlanWantedItSent) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    while (true) {
      const bool login = isLogin(connection.readRequest());
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      connection.answer(200, login ? "set-authorization: a token\r\n" : "");
    }
  });
  EXPECT_EQ(loadFor({"--max", "login.p50=299ms"}), 1) << errors;
  EXPECT_GE(report["login"]["latency"]["p50"], 0.3);
}

TEST_F(LoadProgramTest, ShedsWhatIsAboveTheRateAndSaysSo) {
  EXPECT_EQ(loadFor({"--rate", "4", "--max", "shed=0%"}, "3 s"), 1) << errors;
  EXPECT_LE(static_cast<double>(count("sent")), report["seconds"].get<double>() * 4 + 2);
  EXPECT_GT(count("shedByRate"), 0U);
  EXPECT_EQ(count("planned"), count("sent") + count("shedByRate"));
  EXPECT_THAT(output, HasSubstr("not sent: above the rate"));
}

TEST_F(LoadProgramTest, ShedsWhatIsAboveTheConnections) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.stall();
  });
  EXPECT_EQ(loadFor({"--connections", "3", "--warm-up", "0 s", "--grace", "0 s"}), 3);
  EXPECT_EQ(report["connections"]["most"], 3);
  EXPECT_GT(count("shedByConnections"), 0U);
}

TEST_F(LoadProgramTest, EndsInOrderWhenItIsInterrupted) {
  // The scenario's day is over before the ten minutes are.
  for (const int signal : {SIGINT, SIGTERM}) {
    const std::size_t before = received(false);
    const auto program = start({"--pace", "600", "--duration", "10 min", "--results", path("results")});
    ASSERT_TRUE(eventually([&] { return received(false) > before + 5; })) << program->errors();
    EXPECT_TRUE(eventually([&] { return program->errors().find(" of 144 s: ") != std::string::npos; }));
    program->sendSignal(signal);
    EXPECT_EQ(program->exitCode(), 0) << program->errors();
    EXPECT_THAT(program->output(), HasSubstr("ended before its time"));
    EXPECT_FALSE(read("results").empty());
  }
}

TEST_F(LoadProgramTest, EndsAtOnceAtTheSecondInterruption) {
  server.setScript([](TestConnection &connection) {
    connection.handshake();
    connection.readRequest();
    connection.stall();
  });
  const auto program =
      start({"--pace", "600", "--duration", "10 min", "--warm-up", "0 s", "--grace", "10 min"});
  ASSERT_TRUE(eventually([this] { return !server.requests().empty(); })) << program->errors();
  program->sendSignal(SIGINT);
  // It waits for its requests now, and sends none: the next signal is not handled any more.
  ASSERT_TRUE(eventually([&program] {
    program->sendSignal(SIGINT);
    return !program->isRunning();
  }));
  EXPECT_EQ(program->exitCode(), -SIGINT);
}

TEST_F(LoadProgramTest, LoadsNoOtherMachineUnlessItIsNamedTwice) {
  const std::vector<std::string> elsewhere{KX_FLEET_PROGRAM, "load", scenario, "--service",
                                           "https://192.0.2.1:1"};
  ChildProcess refused(elsewhere);
  EXPECT_EQ(refused.exitCode(), 2);
  EXPECT_THAT(refused.errors(), HasSubstr("192.0.2.1 is not this machine"));
  EXPECT_THAT(refused.errors(), HasSubstr("--really-load 192.0.2.1"));
  auto another = elsewhere;
  another.insert(another.end(), {"--really-load", "192.0.2.2"});
  EXPECT_EQ(ChildProcess(another).exitCode(), 2);
}

TEST_F(LoadProgramTest, SaysWhatItCannotDo) {
  EXPECT_EQ(load({"--json", path("none/report.json")}), 3);
  EXPECT_THAT(errors, HasSubstr("none/report.json cannot be written"));
  EXPECT_EQ(load({"--message", path("none.json")}), 2);
  EXPECT_THAT(errors, HasSubstr("none.json: cannot be read"));
  std::ofstream(path("message.json")) << "[{}, {}]";
  EXPECT_EQ(load({"--message", path("message.json")}), 2);
  EXPECT_THAT(errors, HasSubstr("message.json: one message is wanted here"));
  std::ofstream(path("message.json")) << R"({"a": null})";
  EXPECT_EQ(load({"--message", path("message.json")}), 2);
  EXPECT_THAT(errors, HasSubstr("no message has a null"));
  EXPECT_EQ(load({"--connections", "1000000"}), 2);
  EXPECT_THAT(errors, HasSubstr("--connections: there are descriptors for "));
  EXPECT_EQ(load({"--results", "/dev/full", "--pace", "600", "--duration", "1 s"}), 3);
  EXPECT_THAT(errors, HasSubstr("/dev/full cannot be written"));
  EXPECT_EQ(load({"--from", "24:00"}), 2);
  EXPECT_THAT(errors, HasSubstr("--from: no part of the scenario's time"));
  EXPECT_EQ(load({"--help"}), 0);
  EXPECT_THAT(output, HasSubstr("usage: kx-fleet load"));
}

TEST_F(LoadProgramTest, LoadsACollector) {
  ChildProcess collector({KX_COLLECTOR_PROGRAM, "--json", "--port", "0", "--no-page", "--quiet",
                          "--directory", directory.path()});
  ASSERT_TRUE(eventually([&collector] { return collector.output().find('\n') != std::string::npos; }))
      << collector.errors();
  const Json where = Json::parse(collector.output().substr(0, collector.output().find('\n')));
  ChildProcess program({KX_FLEET_PROGRAM, "load", scenario, "--service",
                        "https://localhost:" + std::to_string(where["port"].get<int>()), "--ca-file",
                        where["caFile"].get<std::string>(), "--pace", "300", "--duration", "3 s", "--grace",
                        "1 min", "--max", "errors=0%", "--max", "shed=0%"});
  EXPECT_EQ(program.exitCode(std::chrono::seconds(60)), 0) << program.errors() << program.output();
  EXPECT_THAT(program.output(), HasSubstr("nothing failed"));
}

}  // namespace
}  // namespace kx::fleet
