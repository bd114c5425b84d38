#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <sstream>
#include <string>

#include "tests/support/ChildProcess.h"
#include "tools/collector/OutputQueue.h"

namespace kx::collector {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr std::size_t maximumSize = 10000;

std::string noticeOf(std::size_t count) {
  return "[" + std::to_string(count) + " left out]\n";
}

class OutputQueueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::signal(SIGPIPE, SIG_IGN);
    ASSERT_EQ(pipe2(ends_.data(), O_CLOEXEC), 0);
  }
  void TearDown() override {
    stopReading();
    closeWriting();
  }

  int descriptor() const { return ends_[1]; }
  void stopReading() { closeEnd(ends_[0]); }
  void closeWriting() { closeEnd(ends_[1]); }

  /// Reads on until that is there.
  std::string readUntil(const std::string &text) {
    while (read_.find(text) == std::string::npos && readSome()) {
    }
    return read_;
  }
  std::string readAll() {
    closeWriting();
    while (readSome()) {
    }
    return read_;
  }

 private:
  static void closeEnd(int &end) {
    if (end >= 0) close(end);
    end = -1;
  }
  bool readSome() {
    std::array<char, 4096> some;
    const ssize_t size = read(ends_[0], some.data(), some.size());
    if (size > 0) read_.append(some.data(), static_cast<std::size_t>(size));
    return size > 0;
  }

  std::array<int, 2> ends_{-1, -1};
  std::string read_;
};

TEST_F(OutputQueueTest, WritesWhatWasFlushed) {
  OutputQueue output(descriptor(), noticeOf);
  output << "one " << 1 << '\n' << std::flush;
  EXPECT_EQ(readUntil("\n"), "one 1\n");
  output << "two" << std::endl;
  EXPECT_EQ(readUntil("two\n"), "one 1\ntwo\n");
}

TEST_F(OutputQueueTest, WritesAllBeforeItGoes) {
  {
    OutputQueue output(descriptor(), noticeOf);
    for (int number = 0; number < 100; ++number) output << number << std::endl;
  }
  EXPECT_THAT(readAll(), HasSubstr("98\n99\n"));
}

TEST_F(OutputQueueTest, AReaderThatPausesHoldsNobodyUpAndIsToldWhatItMissed) {
  constexpr std::size_t count = 1000;
  const std::string filler(999, 'x');
  {
    OutputQueue output(descriptor(), noticeOf, maximumSize);
    const auto start = steady_clock::now();
    for (std::size_t number = 0; number < count; ++number) output << number << filler << std::endl;
    EXPECT_LT(steady_clock::now() - start, seconds(20));
    readUntil("left out]\n");
    output << "after" << std::endl;
  }
  const std::string text = readAll();
  // No piece is there in part or out of its turn, and none is missing without being counted. The thread that
  // writes may come late, so there may be several gaps.
  std::istringstream lines(text);
  std::size_t next = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line[0] == '[') {
      const auto leftOut = static_cast<std::size_t>(std::stoul(line.substr(1)));
      EXPECT_EQ(line + "\n", noticeOf(leftOut));
      next += leftOut;
    } else {
      ASSERT_EQ(line, next < count ? std::to_string(next) + filler : "after");
      ++next;
    }
  }
  EXPECT_EQ(next, count + 1);
  // A pipe holds 64 KiB, and the queue its bound; the rest was not kept anywhere.
  EXPECT_LT(text.find('['), 65536 + maximumSize + 4096);
}

// What is told to be missing is missing in that place.
TEST_F(OutputQueueTest, NothingIsLetInBetweenWhatIsLeftOut) {
  OutputQueue output(descriptor(), noticeOf, maximumSize);
  output << std::string(200000, 'x') << std::endl;
  readUntil("x");  // the queue is empty now, and the pipe is full
  output << std::string(maximumSize - 10, 'y') << std::endl;
  output << std::string(100, 'z') << std::endl;
  output << "short" << std::endl;
  const std::string text = readUntil("left out]\n");
  EXPECT_THAT(text, HasSubstr("y\n[2 left out]\n"));
  EXPECT_THAT(text, Not(HasSubstr("short")));
}

TEST_F(OutputQueueTest, APieceThatIsLongerThanAllThatMayWaitIsWritten) {
  OutputQueue output(descriptor(), noticeOf, maximumSize);
  output << std::string(3 * maximumSize, 'x') << "end" << std::endl;
  EXPECT_EQ(readUntil("end\n").size(), 3 * maximumSize + 4);
}

TEST_F(OutputQueueTest, AReaderThatNeverGoesOnDoesNotKeepItFromEnding) {
  // Its thread may still be writing when this test is over: the descriptor stays open.
  const int kept = fcntl(descriptor(), F_DUPFD_CLOEXEC, 0);
  ASSERT_GE(kept, 0);
  const auto start = steady_clock::now();
  {
    OutputQueue output(kept, noticeOf);
    output << std::string(200000, 'x') << std::endl;
  }
  EXPECT_LT(steady_clock::now() - start, seconds(20));
}

TEST_F(OutputQueueTest, AReaderThatHasGoneIsNotWaitedFor) {
  stopReading();
  const auto start = steady_clock::now();
  {
    OutputQueue output(descriptor(), noticeOf, maximumSize);
    for (int number = 0; number < 100; ++number) output << std::string(1000, 'x') << std::endl;
  }
  EXPECT_LT(steady_clock::now() - start, seconds(20));
}

TEST_F(OutputQueueTest, ADescriptorThatDoesNotWaitIsWaitedFor) {
  fcntl(descriptor(), F_SETFL, O_NONBLOCK);
  OutputQueue output(descriptor(), noticeOf);
  output << std::string(200000, 'x') << "end" << std::endl;
  EXPECT_EQ(readUntil("end\n").size(), 200004u);
}

}  // namespace
}  // namespace kx::collector
