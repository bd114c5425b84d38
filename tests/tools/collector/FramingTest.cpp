// Where a request ends and whom it is for: what could be read in two ways is refused, and nothing after it is
// taken for a request.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/tools/collector/Requests.h"
#include "tests/tools/collector/ServerFixture.h"

namespace kx::collector {
namespace {

using ::testing::HasSubstr;

class FramingTest : public ServerTest {
 protected:
  static std::string chunked(const std::string &body) {
    char size[32];
    std::snprintf(size, sizeof size, "%zx\r\n", body.size());
    return size + body + "\r\n0\r\n";
  }

  static std::string startOf(const Request &request, const std::string &more,
                             const std::string &version = "1.1") {
    std::string text = request.method + " " + request.target + " HTTP/" + version + "\r\n";
    for (const auto &[name, value] : request.fields) text += name + ": " + value + "\r\n";
    return text + more + "\r\n";
  }

  /// That this is answered so, that the connection ends with it, and that nothing after it was read.
  void expectRefusal(const std::string &bytes, unsigned status, const std::string &reason) {
    const std::size_t before = log.answers().size();
    const auto client = connect();
    client->write(bytes);
    const auto response = client->read();
    ASSERT_TRUE(response) << bytes;
    EXPECT_EQ(response->result_int(), status) << bytes;
    EXPECT_THAT(response->body(), HasSubstr(reason));
    EXPECT_FALSE(client->read()) << bytes;
    ASSERT_EQ(log.answers().size(), before + 1) << bytes;
    EXPECT_EQ(log.answers().back().status, status);
  }
};

TEST_F(FramingTest, ABodyInChunksIsTaken) {
  for (const char *coding : {"chunked", "Chunked"}) {
    const auto client = connect();
    client->write(startOf(loginRequest(), std::string("Transfer-Encoding: ") + coding + "\r\n") +
                  chunked(loginRequest().body) + "\r\n");
    const auto response = client->read();
    ASSERT_TRUE(response);
    EXPECT_EQ(response->result_int(), 200u) << response->body();
  }
}

TEST_F(FramingTest, ACodingThatDoesNotEndInChunkedIsRefusedWithAllThatFollows) {
  const std::string smuggled = wireText(loginRequest());
  for (const char *codings : {"xchunked", "chunked, identity", "identity", "chunkedx", "chunked, chunked, x",
                              "chunked;q=1, gzip", "gzip", ""}) {
    const std::string field = std::string("Transfer-Encoding: ") + codings + "\r\n";
    expectRefusal(startOf(loginRequest(), field) + smuggled, 400, "the last of Transfer-Encoding");
    expectRefusal(startOf(loginRequest(), field) + chunked("x") + "\r\n" + smuggled, 400,
                  "the last of Transfer-Encoding");
  }
  expectRefusal(startOf(loginRequest(), "Transfer-Encoding: xchunked\r\nContent-Length: 0\r\n") + smuggled,
                400, "the last of Transfer-Encoding");
}

TEST_F(FramingTest, ACodingBeforeChunkedIsNotUnderstood) {
  const std::string body = chunked(loginRequest().body) + "\r\n";
  for (const char *fields :
       {"Transfer-Encoding: gzip, chunked\r\n", "Transfer-Encoding: gzip\r\nTransfer-Encoding: chunked\r\n",
        "Transfer-Encoding: identity, chunked\r\n"}) {
    expectRefusal(startOf(loginRequest(), fields) + body, 501, "no Transfer-Encoding but chunked");
  }
}

TEST_F(FramingTest, ALengthAndChunksContradictEachOther) {
  const std::string body = chunked(loginRequest().body) + "\r\n";
  expectRefusal(startOf(loginRequest(), "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n") + body, 400,
                "");
  expectRefusal(startOf(loginRequest(), "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n") + body, 400,
                "");
}

TEST_F(FramingTest, AnOldVersionHasNoChunks) {
  expectRefusal(startOf(loginRequest(), "Transfer-Encoding: chunked\r\n", "1.0") + chunked("x") + "\r\n", 400,
                "HTTP/1.0 does not have Transfer-Encoding");
}

TEST_F(FramingTest, AnAuthorizationAfterTheLastChunkDoesNotCount) {
  const Request message = messageRequest(logIn());
  Request bare = message;
  removeField(bare, "Authorization");
  const auto client = connect();
  client->write(startOf(bare, "Transfer-Encoding: chunked\r\nTrailer: Authorization\r\n") +
                chunked(message.body) + "Authorization: " +
                std::string(message.values("Authorization").front()) + "\r\n\r\n" + wireText(loginRequest()));
  const auto response = client->read();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->result_int(), 403u);
  EXPECT_EQ(response->body(), "the header Authorization is missing\n");
  const auto next = client->read();
  ASSERT_TRUE(next);
  EXPECT_EQ(next->result_int(), 200u);
}

TEST_F(FramingTest, ARequestNamesItsHostOnce) {
  Request without = loginRequest();
  removeField(without, "Host");
  expectRefusal(wireText(without) + wireText(loginRequest()), 400, "the header Host is missing");
  Request empty = loginRequest();
  setField(empty, "Host", "");
  expectRefusal(wireText(empty), 400, "the header Host is missing");
  Request twice = loginRequest();
  twice.fields.emplace_back("host", "other");
  expectRefusal(wireText(twice), 400, "the header Host is there more than once");
}

TEST_F(FramingTest, AnOldVersionNeedsNoHost) {
  Request without = loginRequest();
  removeField(without, "Host");
  const auto client = connect();
  client->write(startOf(without, "Content-Length: " + std::to_string(without.body.size()) + "\r\n", "1.0") +
                without.body);
  const auto response = client->read();
  ASSERT_TRUE(response);
  EXPECT_EQ(response->result_int(), 200u);
}

}  // namespace
}  // namespace kx::collector
