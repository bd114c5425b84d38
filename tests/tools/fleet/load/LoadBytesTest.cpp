// What load sends is, to the byte, what a host of the library sends.

#include <algorithm>
#include <fstream>
#include <regex>

#include "tests/tools/fleet/load/LoadFixture.h"
#include "tools/collector/GzipMember.h"
#include "tools/fleet/LoadMessage.h"
#include "tools/fleet/LoadRequests.h"

namespace kx::fleet {
namespace {

constexpr std::size_t headerEnd = 4;  // "\r\n\r\n"

std::string bodyOf(const std::string &request) {
  return request.substr(request.find("\r\n\r\n") + headerEnd);
}

std::string headerOf(const std::string &request) {
  return request.substr(0, request.find("\r\n\r\n") + headerEnd);
}

std::string unpacked(const std::string &request) {
  return collector::unpackGzipMember(bodyOf(request), 1 << 20);
}

std::string withoutLength(const std::string &header) {
  return std::regex_replace(header, std::regex("Content-Length: [0-9]+"), "Content-Length: -");
}

std::string withoutIdentity(const std::string &text) {
  return std::regex_replace(text, std::regex(R"delimiter("(id|ifa|eventTime)":("[^"]*"|[0-9]+))delimiter"),
                            R"("$1":-)");
}

std::string valueIn(const std::string &text, const std::string &key) {
  std::smatch found;
  return std::regex_search(text, found, std::regex("\"" + key + R"delimiter(":"?([^",}]+))delimiter"))
             ? found[1].str()
             : "";
}

class LoadBytesTest : public LoadTest {
 protected:
  /// The first login and the first message that have come.
  std::vector<std::string> firstOfEach() const {
    const auto requests = server.requests();
    const auto login = std::find_if(requests.begin(), requests.end(), &isLogin);
    const auto message = std::find_if_not(requests.begin(), requests.end(), &isLogin);
    if (login == requests.end() || message == requests.end()) return {};
    return {*login, *message};
  }
};

TEST_F(LoadBytesTest, AreThoseOfAHost) {
  ChildProcess host({KX_HOST_PROGRAM, "--api-token", "the token", "--hostname",
                     "localhost:" + std::to_string(server.port()), "--ca-file", authorityFile, "--ifa",
                     "6D92078A-8246-4BA4-AE5B-76104861E7DC"},
                    {"DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent"});
  ASSERT_TRUE(eventually([this] { return !firstOfEach().empty(); })) << host.errors();
  const auto ofHost = firstOfEach();
  host.sendSignal(SIGTERM);
  EXPECT_TRUE(host.exitCode());
  const std::string text = unpacked(ofHost[1]);
  std::ofstream(path("message.json")) << text;

  // Of the same values in the same process, all of it, as it is packed.
  const LoadMessage message = LoadMessage::fromFile(path("message.json"));
  static const bool isDevice =
      (LoadRequests::setDevice(message.systemName(), message.bundleIdentifier()), true);
  ASSERT_TRUE(isDevice);
  const LoadRequests requests("localhost:" + std::to_string(server.port()), "the token");
  const LoadRequest same = requests.message(
      message.with(valueIn(text, "ifa"), valueIn(text, "id"), std::stoll(valueIn(text, "eventTime"))),
      "a token");
  ASSERT_TRUE(same.body);
  EXPECT_EQ(std::string(same.body->begin(), same.body->end()), bodyOf(ofHost[1]));
  EXPECT_EQ(std::string(requests.login().body->begin(), requests.login().body->end()), bodyOf(ofHost[0]));

  // On the network, all but what is another one each time.
  const std::size_t before = server.requests().size();
  ASSERT_EQ(load({"--message", path("message.json"), "--api-token", "the token", "--pace", "600",
                  "--duration", "1 s"}),
            0)
      << errors;
  const auto all = server.requests();
  bool hasLogin = false;
  bool hasMessage = false;
  for (std::size_t i = before; i < all.size(); ++i) {
    hasLogin = hasLogin || isLogin(all[i]);
    hasMessage = hasMessage || !isLogin(all[i]);
    if (isLogin(all[i])) {
      EXPECT_EQ(all[i], ofHost[0]);
      continue;
    }
    EXPECT_EQ(withoutLength(headerOf(all[i])), withoutLength(headerOf(ofHost[1])));
    EXPECT_EQ(withoutIdentity(unpacked(all[i])), withoutIdentity(text));
  }
  EXPECT_TRUE(hasLogin);
  EXPECT_TRUE(hasMessage);
}

TEST(LoadMessageTest, IsOfItsDevice) {
  const LoadMessage message = LoadMessage::usual();
  const Dictionary one = message.of(1, 7, "an id");
  EXPECT_EQ(*one.find("id"), Value("an id"));
  EXPECT_EQ(*one.find("ifa"), Value(LoadMessage::advertisingIdentifier(1, 7)));
  EXPECT_EQ(*one.find("ifa"), *message.of(1, 7, "another").find("ifa"));
  EXPECT_NE(*one.find("ifa"), *message.of(1, 8, "an id").find("ifa"));
  EXPECT_NE(*one.find("ifa"), *message.of(2, 7, "an id").find("ifa"));
  EXPECT_EQ(*one.find("eventTime")->integer() % 1000, 0);
  EXPECT_GT(*one.find("eventTime")->integer(), 1'700'000'000'000);
  EXPECT_TRUE(
      std::regex_match(LoadMessage::advertisingIdentifier(1, 7),
                       std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")));
  EXPECT_NE(LoadMessage::newId(), LoadMessage::newId());
}

}  // namespace
}  // namespace kx::fleet
