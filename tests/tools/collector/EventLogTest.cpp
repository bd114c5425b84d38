#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tests/tools/collector/Requests.h"
#include "tools/collector/EventLog.h"

namespace kx::collector {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char *escape = "\x1B[";

Answer acceptedLogin() {
  Answer answer;
  answer.endpoint = Endpoint::login;
  answer.accessToken = "0123abcd";
  answer.document = loginDocument();
  return answer;
}

Answer acceptedMessage() {
  Answer answer;
  answer.endpoint = Endpoint::message;
  answer.document = Document::parse(R"([{"ifa":"x","city":"München","lat":48.1,"languages":["de","en"]}])");
  return answer;
}

Answer refusedRequest() {
  Answer answer;
  answer.status = 404;
  answer.reason = "there is no endpoint \"/\"";
  return answer;
}

TEST(ListeningAddressTest, MakesAURL) {
  EXPECT_EQ((ListeningAddress{"127.0.0.1", 8443, "", true}.url()), "https://127.0.0.1:8443");
  EXPECT_EQ((ListeningAddress{"::1", 1, "", true}.url()), "https://[::1]:1");
}

class PrettyEventLogTest : public ::testing::Test {
 protected:
  std::ostringstream output;
  PrettyEventLog log{output, /*colours=*/false};
};

TEST_F(PrettyEventLogTest, TheFirstLineTellsAScriptAllItNeeds) {
  log.listening({"127.0.0.1", 8443, "/state/ca.pem", true});
  EXPECT_EQ(output.str(), "listening on https://127.0.0.1:8443, CA file /state/ca.pem\n");
}

TEST_F(PrettyEventLogTest, TheSecondLineLeadsToThePage) {
  log.listening({"127.0.0.1", 8443, "/ca.pem", true, "http://127.0.0.1:8080", "0123"});
  EXPECT_EQ(
      output.str(),
      "listening on https://127.0.0.1:8443, CA file /ca.pem\nsee them arrive at http://127.0.0.1:8080/\n");
}

TEST_F(PrettyEventLogTest, TheFirstLineNamesTheCertificateThatWasGiven) {
  log.listening({"127.0.0.1", 8443, "/mine.pem", false});
  EXPECT_EQ(output.str(), "listening on https://127.0.0.1:8443, certificate /mine.pem\n");
}

TEST_F(PrettyEventLogTest, AMessageIsPrintedOneAlignedLineAValue) {
  log.received("127.0.0.1:4711", messageRequest("t"), acceptedMessage());
  EXPECT_THAT(output.str(),
              ContainsRegex("^[0-9][0-9]:[0-9][0-9]:[0-9][0-9]  message from 127\\.0\\.0\\.1:4711: "
                            "accepted, 200\n"));
  EXPECT_THAT(output.str(), HasSubstr("          ifa        \"x\"\n"
                                      "          city       \"München\"\n"
                                      "          lat        48.1\n"
                                      "          languages  [\"de\",\"en\"]\n"));
}

TEST_F(PrettyEventLogTest, ALoginIsPrintedWithItsPartsAndTheTokenThatItGets) {
  log.received("c", loginRequest(), acceptedLogin());
  EXPECT_THAT(output.str(), HasSubstr("login from c: accepted, 200\n"));
  EXPECT_THAT(output.str(), HasSubstr("          header.typ      \"JWT\"\n"));
  EXPECT_THAT(output.str(), HasSubstr("          payload.sub     \"an API token\"\n"));
  EXPECT_THAT(output.str(), HasSubstr("          (access token)  0123abcd\n"));
}

TEST_F(PrettyEventLogTest, ACertificateThatIsFetchedIsPrintedAsSuch) {
  const Download download{"a/type", "body"};
  Answer answer;
  answer.download = &download;
  log.received("c", Request{"GET", "/ca", {}, ""}, answer);
  EXPECT_THAT(output.str(), HasSubstr("request from c: the certificate was fetched (a/type)\n"));
}

TEST_F(PrettyEventLogTest, ARefusalIsPrintedWithItsReason) {
  log.received("c", Request{"GET", "/", {}, ""}, refusedRequest());
  EXPECT_THAT(output.str(), HasSubstr("request from c: answered 404: there is no endpoint \"/\"\n"));
}

TEST_F(PrettyEventLogTest, ADroppedConnectionIsPrintedAsSuch) {
  Answer answer = acceptedMessage();
  answer.drop = true;
  log.received("c", messageRequest("t"), answer);
  EXPECT_THAT(output.str(), HasSubstr("accepted, 200 (not sent: told to drop the connection)\n"));
}

TEST_F(PrettyEventLogTest, AnyOtherDocumentIsPrintedOnOneLine) {
  Answer answer = refusedRequest();
  answer.document = Document::parse("[1,[2]]");
  log.received("c", Request(), answer);
  EXPECT_THAT(output.str(), HasSubstr("          body  [1,[2]]\n"));
}

TEST_F(PrettyEventLogTest, AFailedConnectionIsPrintedWithItsReason) {
  log.failed("c", "no TLS handshake");
  EXPECT_THAT(output.str(), HasSubstr("  connection from c: no TLS handshake\n"));
}

TEST_F(PrettyEventLogTest, NoClientCanSendControlCharactersToTheTerminal) {
  Answer answer = acceptedMessage();
  answer.document = Document::parse(R"([{"\u001b[31m":"\u001b[0m\u009b\n"}])");
  log.received("c", messageRequest("t"), answer);
  EXPECT_THAT(output.str(), Not(HasSubstr("\x1B")));
  EXPECT_THAT(output.str(), HasSubstr(R"(\u001b[31m  "\u001b[0m\u009b\n")"));
}

TEST_F(PrettyEventLogTest, NoClientCanReorderOrBreakLinesOfTheTerminal) {
  Answer answer = acceptedMessage();
  answer.document = Document::parse(R"([{"a\u202e":"b\u2066","c":{"\u2028":["\u2029"]}}])");
  log.received("c", messageRequest("t"), answer);
  EXPECT_THAT(output.str(), HasSubstr(R"(a\u202e   "b\u2066")"));
  EXPECT_THAT(output.str(), HasSubstr(R"(c.\u2028  ["\u2029"])"));
}

TEST_F(PrettyEventLogTest, TellsWhatIsMissing) {
  EXPECT_EQ(PrettyEventLog::leftOut(1), "(left out, since the reader of this paused: 1 event)\n\n");
  EXPECT_EQ(PrettyEventLog::leftOut(2), "(left out, since the reader of this paused: 2 events)\n\n");
}

TEST_F(PrettyEventLogTest, ColoursAreForTerminals) {
  log.received("c", messageRequest("t"), acceptedMessage());
  EXPECT_THAT(output.str(), Not(HasSubstr(escape)));
  PrettyEventLog coloured(output, /*colours=*/true);
  coloured.received("c", messageRequest("t"), acceptedMessage());
  EXPECT_THAT(output.str(), HasSubstr("\x1B[32maccepted, 200\x1B[0m"));
  coloured.received("c", messageRequest("t"), refusedRequest());
  EXPECT_THAT(output.str(), HasSubstr("\x1B[31manswered 404"));
}

class JSONEventLogTest : public ::testing::Test {
 protected:
  std::ostringstream output;
  JSONEventLog log{output};

  /// The event, if it was exactly one line.
  Document event() {
    const std::string text = output.str();
    EXPECT_EQ(text.find('\n'), text.size() - 1) << text;
    return Document::parse(text);
  }
};

TEST_F(JSONEventLogTest, TheFirstLineTellsAScriptAllItNeeds) {
  log.listening({"127.0.0.1", 8443, "/state/ca.pem", true});
  EXPECT_EQ(event(),
            Document::parse(R"({"event":"listening","url":"https://127.0.0.1:8443","address":"127.0.0.1",
                                         "port":8443,"caFile":"/state/ca.pem"})"));
}

TEST_F(JSONEventLogTest, TheFirstLineLeadsToThePage) {
  log.listening({"127.0.0.1", 8443, "/state/ca.pem", true, "http://127.0.0.1:8080", "0123"});
  EXPECT_EQ(event().value("page", ""), "http://127.0.0.1:8080");
  EXPECT_EQ(event().value("pageToken", ""), "0123");
}

TEST_F(JSONEventLogTest, TheFirstLineNamesTheCertificateThatWasGiven) {
  log.listening({"127.0.0.1", 8443, "/mine.pem", false});
  EXPECT_EQ(event().value("certificate", ""), "/mine.pem");
  EXPECT_FALSE(event().contains("caFile"));
}

TEST_F(JSONEventLogTest, ALoginIsOneLine) {
  Request request = loginRequest();
  request.receiveTime = std::chrono::microseconds(12);
  Answer answer = acceptedLogin();
  answer.text = "unpacks";
  answer.warnings = {"odd"};
  answer.fault = "answered late";
  answer.workTime = std::chrono::microseconds(34);
  log.received("127.0.0.1:4711", request, answer);
  Document line = event();
  EXPECT_THAT(line.value("time", ""), ContainsRegex("^20[0-9-]+T[0-9:]+\\.[0-9]+Z$"));
  line.erase("time");
  Document expected = Document::parse(R"({"event":"request","client":"127.0.0.1:4711","endpoint":"login",
      "method":"POST","target":"/api_v0_0_0/do_login","headerFields":[["Host","localhost"],["Content-Type","application/json"],["Content-Encoding","gzip"]],
      "packedSize":0,"unpackedSize":7,"accepted":true,"status":200,"warnings":["odd"],"fault":"answered late",
      "microseconds":{"receive":12,"work":34},"accessToken":"0123abcd"})");
  expected["packedSize"] = request.body.size();
  expected["document"] = loginDocument();
  EXPECT_EQ(line, expected);
}

TEST_F(JSONEventLogTest, ARefusalHasAReason) {
  log.received("c", Request{"GET", "/\xFF", {}, ""}, refusedRequest());
  EXPECT_EQ(event().value("status", 0), 404);
  EXPECT_EQ(event().value("accepted", true), false);
  EXPECT_EQ(event().value("reason", ""), "there is no endpoint \"/\"");
  EXPECT_EQ(event().value("target", ""), "/\xEF\xBF\xBD");
  EXPECT_FALSE(event().contains("endpoint"));
  EXPECT_FALSE(event().contains("document"));
}

TEST_F(JSONEventLogTest, ADroppedConnectionIsMarked) {
  Answer answer = acceptedMessage();
  answer.drop = true;
  log.received("c", messageRequest("t"), answer);
  EXPECT_EQ(event().value("dropped", false), true);
}

TEST_F(JSONEventLogTest, AFailedConnectionIsOneLine) {
  log.failed("c", "no TLS handshake");
  EXPECT_EQ(event().value("event", ""), "connection");
  EXPECT_EQ(event().value("client", ""), "c");
  EXPECT_EQ(event().value("reason", ""), "no TLS handshake");
}

TEST_F(JSONEventLogTest, TellsWhatIsMissing) {
  EXPECT_EQ(JSONEventLog::leftOut(3), "{\"event\":\"leftOut\",\"count\":3}\n");
}

TEST_F(JSONEventLogTest, ALineIsPlainASCII) {
  log.received("c", messageRequest("t"), acceptedMessage());
  EXPECT_THAT(output.str(), HasSubstr("M\\u00fcnchen"));
}

}  // namespace
}  // namespace kx::collector
