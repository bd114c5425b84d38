#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "tests/platform/linux/https/TestServer.h"
#include "tests/platform/linux/threads/VirtualTime.h"
#include "tests/support/ChildProcess.h"
#include "tools/explore/LibraryPromises.h"
#include "tools/explore/Story.h"

namespace kx {

/// The collection service of a story: a real server, which answers in virtual time as the story says, and
/// tells of what arrives. Used by the main thread, beside the server's own.
class StoryService {
 public:
  /// Where the promises that it tells live; used under its lock.
  using Telling = std::function<void(LibraryPromises &promises)>;

  StoryService(const VirtualTime &time, double latency, LibraryPromises &promises);

  std::string hostname() const { return "127.0.0.1:" + std::to_string(server_.port()); }
  /// The file of the authority that vouches for it.
  std::string authorityFile() const { return directory_.path() + "/authority.pem"; }

  /// The next login, or message, is answered by the answer of that number.
  void answerLoginBy(int number);
  void answerMessageBy(int number);
  /// All that are to come are answered as they should be.
  void answerWell();
  /// No token that was given is good any more.
  void revokeTokens();

  /// Whether it can be reached. When that ends so do all connections.
  void setReachable(bool isReachable);

  /// How many requests it has in hand.
  int inHand() const { return inHand_; }

  /// Has the promises used while no server's thread does.
  void tell(const Telling &telling);

 private:
  struct Request {
    bool isLogin = false;
    std::string text;
    std::string authorization;
  };
  struct Answer;

  void serve(TestConnection &connection);
  static Request parsed(const std::string &bytes);
  Answer answerTo(const Request &request);
  Answer ordinaryAnswer(const Request &request);
  Answer numbered(int number, const Request &request);
  void promise(const Request &request, const Answer &answer);
  static bool give(const Answer &answer, TestConnection &connection, bool isFirst);

  const VirtualTime &time_;
  const double latency_;
  const TemporaryDirectory directory_;
  std::atomic<bool> isReachable_{true};
  std::atomic<int> inHand_{0};

  std::mutex mutex_;  ///< guards the next ones, and the promises
  LibraryPromises &promises_;
  std::deque<int> logins_;
  std::deque<int> messages_;
  std::set<std::string> goodTokens_;
  int tokensGiven_ = 0;

  const collector::CertificateAuthority authority_{"Test authority"};
  TestServer server_;  // the first to go: its threads use all this
};

}  // namespace kx
