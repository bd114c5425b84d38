#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <future>
#include <set>

#include "tests/support/ChildProcess.h"
#include "tools/collector/Database.h"
#include "tools/collector/Document.h"
#include "tools/collector/EmbeddedFiles.h"
#include "tools/collector/PageFiles.h"
#include "tools/collector/PageService.h"
#include "tools/collector/Recorder.h"
#include "tools/collector/Refusal.h"

namespace kx::collector {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::string_view contentOfFile(std::string_view name) {
  for (const EmbeddedFile &file : embeddedFiles()) {
    if (file.name == name) return file.content;
  }
  return {};
}

TEST(PageServiceTest, TheDescriptionHasEveryPathAndNoOther) {
  const Document description = Document::parse(contentOfFile("openapi.json"));
  std::set<std::pair<std::string, std::string>> described;
  for (const auto &[path, methods] : description["paths"].items()) {
    for (const auto &[method, operation] : methods.items()) {
      std::string capitals = method;
      std::transform(capitals.begin(), capitals.end(), capitals.begin(),
                     [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
      described.emplace(capitals, path);
    }
  }
  const auto routes = PageService::routes();
  EXPECT_EQ(described, std::set(routes.begin(), routes.end()));
}

TEST(PageServiceTest, ThePageHasOnePlaceForTheToken) {
  const std::string page(contentOfFile("index.html"));
  const std::string place = "<meta name=\"page-token\" content=\"";
  ASSERT_NE(page.find(place + "\""), std::string::npos);
  EXPECT_EQ(page.find(place), page.rfind(place));
  EXPECT_THAT(withToken(page, "0123"), HasSubstr(place + "0123\""));
}

TEST(PageServiceTest, FilesHaveTheirMediaTypes) {
  EXPECT_STREQ(mediaTypeOf("page.js"), "text/javascript; charset=utf-8");
  EXPECT_STREQ(mediaTypeOf("page.css"), "text/css; charset=utf-8");
  EXPECT_STREQ(mediaTypeOf("map.bin"), "application/octet-stream");
}

TEST(QueryTest, DecodesWhatItIsGiven) {
  Query query("/path?a=1+%C3%bc%26&b&&c==&d=");
  EXPECT_EQ(query.text("a"), "1 \xC3\xBC&");
  EXPECT_EQ(query.text("b"), std::nullopt);
  EXPECT_EQ(query.text("c"), "=");
  EXPECT_EQ(query.text("d"), std::nullopt);
  EXPECT_NO_THROW(query.expectNoMore());
  EXPECT_NO_THROW(Query("/path").expectNoMore());
  for (const char *bad : {"/?a=%", "/?a=%4", "/?a=%4g", "/?%zz=1"}) EXPECT_THROW(Query{bad}, Refusal) << bad;
}

TEST(QueryTest, NumbersAreWholeAndWithinBounds) {
  const auto number = [](const char *text) { return Query(std::string("/?n=") + text).number("n", 1, 20); };
  EXPECT_EQ(number("1"), 1u);
  EXPECT_EQ(number("20"), 20u);
  for (const char *bad : {"0", "21", "-1", "+1", "1x", "0x1", "1.0", "%201", "99999999999999999999"}) {
    EXPECT_THROW(number(bad), Refusal) << bad;
  }
}

/// A log that tells nobody.
class NoLog : public EventLog {
 public:
  void listening(const ListeningAddress &) override {}
  void received(const std::string &, const Request &, const Answer &) override {}
  void failed(const std::string &, const std::string &) override {}
};

class RecorderTest : public ::testing::Test {
 protected:
  NoLog log;
  Store store;
  Recorder recorder{log, store};
  const std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now();

  void logIn(const std::string &token) {
    Answer answer;
    answer.endpoint = Endpoint::login;
    answer.accessToken = token;
    recorder.received("c", Request(), answer);
  }

  void sendMessage(const std::string &token) {
    Answer answer;
    answer.endpoint = Endpoint::message;
    answer.document = Document::parse(R"([{"ifa":"x","lat":"north","eventTime":1.5}])");
    recorder.received("c", Request{"POST", "/", {{"authorization", "Bearer " + token}}, ""}, answer);
  }
};

TEST_F(RecorderTest, WarnsOfALoginThatNoMessageFollows) {
  logIn("followed");
  logIn("alone");
  sendMessage("followed");
  recorder.checkLogins(now + std::chrono::seconds(59));
  EXPECT_EQ(store.counts({}).warned, 0u);
  recorder.checkLogins(now + std::chrono::seconds(61));
  EXPECT_THAT(store.record(1)->warnings, IsEmpty());
  EXPECT_THAT(store.record(2)->warnings, ElementsAre("no message has followed this login for 60 s"));
  recorder.checkLogins(now + std::chrono::seconds(120));
  EXPECT_EQ(store.record(2)->warnings.size(), 1u);
}

TEST_F(RecorderTest, TellsWhyARequestCouldNotBeKept) {
  const TemporaryDirectory temporary;
  const std::string file = temporary.path() + "/requests";
  Store broken(file);
  Database(file, SQLITE_OPEN_READWRITE).execute("DROP TABLE content");
  Recorder ofBroken(log, broken);
  std::promise<std::string> told;
  ofBroken.receive("c", Request(), Answer(),
                   [&told](const EventLog::Keeping &keeping) { told.set_value(keeping.problem); });
  EXPECT_THAT(told.get_future().get(), HasSubstr("a request could not be stored: no such table"));
}

TEST_F(RecorderTest, TakesFromAMessageWhatHasItsType) {
  sendMessage("t");
  const auto record = store.record(1);
  EXPECT_EQ(record->device, "x");
  EXPECT_FALSE(record->latitude);
  EXPECT_FALSE(record->eventTime);
}

TEST_F(RecorderTest, TheTimeOfAnAnswerGoesToItsRequest) {
  sendMessage("t");
  recorder.answered("another", std::chrono::microseconds(1));
  EXPECT_EQ(store.record(1)->microseconds.send, 0);
  recorder.answered("c", std::chrono::microseconds(42));
  EXPECT_EQ(store.record(1)->microseconds.send, 42);
  recorder.answered("c", std::chrono::microseconds(43));
  EXPECT_EQ(store.record(1)->microseconds.send, 42);
}

TEST_F(RecorderTest, LongTextsAreCutInLists) {
  Answer answer;
  answer.endpoint = Endpoint::message;
  answer.document = Document::array({{{"ifa", std::string(199, 'x') + "\xC3\xBC"}}});
  recorder.received("c", Request(), answer);
  EXPECT_EQ(store.record(1)->device, std::string(199, 'x'));
}

}  // namespace
}  // namespace kx::collector
