#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/system/error_code.hpp>

#include "tools/collector/ListeningProblem.h"

namespace kx::collector {
namespace {

using boost::asio::ip::tcp;
using ::testing::HasSubstr;

class ListeningProblemTest : public ::testing::Test {
 protected:
  boost::asio::io_context io;
  const std::string self = "(process " + std::to_string(getpid()) + ")";

  static std::string problem(boost::system::error_code error, const char *address = "127.0.0.1",
                             std::uint16_t port = 1) {
    return listeningProblem({boost::asio::ip::make_address(address), port}, error, "--some-port");
  }
};

TEST_F(ListeningProblemTest, FindsWhoListensOnAPort) {
  const tcp::acceptor inet(io, {boost::asio::ip::address_v4::loopback(), 0});
  EXPECT_THAT(listenersOn(inet.local_endpoint().port()), HasSubstr(self));
  const tcp::acceptor inet6(io, {tcp::v6(), 0});
  EXPECT_THAT(listenersOn(inet6.local_endpoint().port()), HasSubstr(self));
}

TEST_F(ListeningProblemTest, WhoOnlyHasAPortDoesNotListenOnIt) {
  tcp::socket bound(io, {boost::asio::ip::address_v4::loopback(), 0});
  EXPECT_EQ(listenersOn(bound.local_endpoint().port()), "");
}

TEST_F(ListeningProblemTest, APortInUseIsNamedWithItsUserAndTheWayOut) {
  const tcp::acceptor other(io, {boost::asio::ip::address_v4::loopback(), 0});
  const std::uint16_t port = other.local_endpoint().port();
  const std::string text = problem(boost::asio::error::address_in_use, "127.0.0.1", port);
  EXPECT_THAT(text, HasSubstr("port " + std::to_string(port) + " of 127.0.0.1 is in use, by \""));
  EXPECT_THAT(text,
              HasSubstr(self + "\nEnd that, or take another port with --some-port N, or any free one with "
                               "--some-port 0."));
}

TEST_F(ListeningProblemTest, AUserWhoCannotBeFoundIsNotMadeUp) {
  tcp::socket bound(io, {boost::asio::ip::address_v4::loopback(), 0});
  EXPECT_THAT(problem(boost::asio::error::address_in_use, "127.0.0.1", bound.local_endpoint().port()),
              HasSubstr("is in use, by a program that this user cannot look into\n"));
}

TEST_F(ListeningProblemTest, OtherProblemsSayWhatToDoToo) {
  EXPECT_THAT(problem(boost::asio::error::access_denied, "127.0.0.1", 443),
              HasSubstr("port 443 is for privileged programs only\nTake another port with --some-port N"));
  EXPECT_THAT(problem(make_error_code(boost::system::errc::address_not_available), "192.0.2.7"),
              HasSubstr("192.0.2.7 is no address of this machine\nIt has 127.0.0.1"));
  EXPECT_THAT(problem(boost::asio::error::no_memory), HasSubstr("cannot listen on port 1 of 127.0.0.1: "));
}

}  // namespace
}  // namespace kx::collector
