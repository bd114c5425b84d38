#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/collector/Requests.h"
#include "tests/tools/collector/ServerFixture.h"
#include "tools/collector/StreamForwarder.h"

namespace kx::collector {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

class FakeStream : public MessageStream {
 public:
  void publish(const StreamMessage &message, Acknowledged acknowledged) override {
    messages.push_back(message);
    pending.push_back(std::move(acknowledged));
  }
  StreamStatistics statistics() const override { return {}; }

  std::vector<StreamMessage> messages;
  std::vector<Acknowledged> pending;
};

class StreamForwarderTest : public ::testing::Test {
 protected:
  boost::asio::io_context io;
  RecordingEventLog log;
  FakeStream stream;
  StreamForwarder forwarder{log, stream, "kx.messages", io};
  CollectionService service{CollectionServiceSettings()};
  std::vector<EventLog::Keeping> kept;

  void receive(const Request &request) {
    const Answer answer = service.receive(request, {});
    if (answer.accessToken) token = *answer.accessToken;
    forwarder.receive("192.0.2.1:1234", request, answer,
                      [this](const EventLog::Keeping &keeping) { kept.push_back(keeping); });
  }

  void receiveMessage(const std::string &key = "", const Document &value = nullptr) {
    if (token.empty()) {
      receive(loginRequest());
      kept.clear();
      log.forget();
    }
    Document document = messageDocument();
    if (!key.empty()) document[0][key] = value;
    receive(messageRequest(token, document));
  }

  std::string subjectOf(const std::string &application) {
    receiveMessage("bundleId", application);
    return stream.messages.back().subject;
  }
  std::string idOf(const std::string &id) {
    receiveMessage("id", id);
    return stream.messages.back().id;
  }

  void tell(const StreamOutcome &outcome) {
    stream.pending.back()(outcome);
    io.restart();
    io.run();
  }

  std::string token;
};

TEST_F(StreamForwarderTest, AnswersAMessageWhenTheStreamHasIt) {
  receiveMessage();
  EXPECT_THAT(kept, IsEmpty());
  EXPECT_THAT(log.answers(), IsEmpty());
  tell({});
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept.front().problem, "");
  ASSERT_EQ(log.answers().size(), 1u);
  EXPECT_EQ(log.answers().front().status, 200u);
  EXPECT_EQ(log.answers().front().endpoint, Endpoint::message);
}

TEST_F(StreamForwarderTest, RefusesAMessageThatTheStreamDoesNotHave) {
  receiveMessage();
  tell({"it is full", 413});
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept.front().problem, "it is full");
  EXPECT_EQ(kept.front().status, 413u);
  ASSERT_EQ(log.answers().size(), 1u);
  EXPECT_EQ(log.answers().front().status, 413u);
  EXPECT_EQ(log.answers().front().reason, "it is full");
}

TEST_F(StreamForwarderTest, TellsOnTheThreadOfTheServer) {
  receiveMessage();
  stream.pending.back()({});
  EXPECT_THAT(kept, IsEmpty());
  io.run();
  EXPECT_EQ(kept.size(), 1u);
}

TEST_F(StreamForwarderTest, PublishesNothingElse) {
  receive(loginRequest());
  receive(messageRequest("unknown"));
  EXPECT_THAT(stream.messages, IsEmpty());
  EXPECT_EQ(kept.size(), 2u);
  EXPECT_EQ(log.answers().size(), 2u);
}

TEST_F(StreamForwarderTest, PublishesTheTextAsItCame) {
  receiveMessage("name", "\xC3\xA4");
  Document expected = messageDocument();
  expected[0]["name"] = "\xC3\xA4";
  EXPECT_EQ(Document::parse(stream.messages.back().payload), expected);
  EXPECT_EQ(stream.messages.back().subject, "kx.messages.other");  // it names no application
  EXPECT_EQ(stream.messages.back().id, expected[0].value("id", ""));
  EXPECT_THAT(stream.messages.back().headers, ::testing::Contains(Pair("Kx-Client", "192.0.2.1:1234")));
}

TEST_F(StreamForwarderTest, PublishesHeaderFieldsInPrintableASCII) {
  receive(loginRequest());
  Request request = messageRequest(token);
  request.fields.emplace_back("user-agent", "a\r\nNats-Msg-Id: x\x7F\xC3" + std::string(1000, 'b'));
  receive(request);
  EXPECT_THAT(stream.messages.back().headers,
              ::testing::Contains(Pair("User-Agent", "a??Nats-Msg-Id: x??" + std::string(281, 'b'))));
}

TEST_F(StreamForwarderTest, MakesSubjectsOfUsualNamesAlone) {
  EXPECT_EQ(subjectOf("com.example.My_App-2"), "kx.messages.app.com.example.My_App-2");
  EXPECT_EQ(subjectOf(std::string(200, 'a')), "kx.messages.app." + std::string(200, 'a'));
  for (const std::string name :
       {"", ".", "a.", ".a", "a..b", "a b", "*", "a.*", ">", "a.>", "$a", "a\n", "\xC3\xA4"}) {
    EXPECT_EQ(subjectOf(name), "kx.messages.other") << name;
  }
  EXPECT_EQ(subjectOf(std::string(201, 'a')), "kx.messages.other");
}

TEST_F(StreamForwarderTest, HasSoManySubjectsAndNoMore) {
  for (std::size_t number = 0; number < StreamForwarder::maximumSubjects; ++number) {
    const std::string name = "app" + std::to_string(number);
    ASSERT_EQ(subjectOf(name), "kx.messages.app." + name);
  }
  EXPECT_EQ(subjectOf("another"), "kx.messages.other");
  EXPECT_EQ(subjectOf("app0"), "kx.messages.app.app0");
}

TEST_F(StreamForwarderTest, HasPlainIdsForAllIds) {
  EXPECT_EQ(idOf("6D92078A-8246_x"), "6D92078A-8246_x");
  EXPECT_EQ(idOf("a b"), "sha256:c8687a08aa5d6ed2044328fa6a697ab8e96dc34291e8c2034ae8c38e6fcc6d65");
  EXPECT_NE(idOf("a\n"), idOf("a\r"));
  EXPECT_EQ(idOf(std::string(200, 'a')), std::string(200, 'a'));
  EXPECT_THAT(idOf(std::string(201, 'a')), ::testing::StartsWith("sha256:"));
  EXPECT_THAT(idOf("sha256:x"), ::testing::MatchesRegex("sha256:[0-9a-f]{64}"));
}

}  // namespace
}  // namespace kx::collector
