#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <deque>

#include "platform/linux/bus/FileDescriptor.h"
#include "platform/linux/threads/ForkedChild.h"
#include "tests/support/InForkedChild.h"

namespace kx {
namespace {

/// The files of one library that are not handed down to children.
class ForkedChildTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ForkedChild::expect(); }

  void openFiles(int count) {
    for (int i = 0; i < count; ++i) files.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  }
  int filesOfAChild() const {
    return inForkedChild([this] {
      return static_cast<int>(std::count_if(files.begin(), files.end(), [](const FileDescriptor &file) {
        struct stat status {};
        return fstat(file.number(), &status) == 0 && S_ISSOCK(status.st_mode);
      }));
    });
  }

  std::deque<FileDescriptor> files;
};

TEST_F(ForkedChildTest, HasWhatIsNotKeptFromIt) {
  openFiles(3);
  EXPECT_EQ(filesOfAChild(), 3);
}

TEST_F(ForkedChildTest, HasNothingOfWhatIsKeptFromIt) {
  openFiles(40);
  for (const FileDescriptor &file : files) ForkedChild::keepFrom(file.number());
  EXPECT_EQ(filesOfAChild(), 0);
}

TEST_F(ForkedChildTest, HasWhatDoesNotFitIn) {
  openFiles(60);
  for (const FileDescriptor &file : files) ForkedChild::keepFrom(file.number());
  EXPECT_EQ(filesOfAChild(), 60 - 48);
}

TEST_F(ForkedChildTest, FilesThatAreClosedTakeNoPlace) {
  openFiles(200);
  for (const FileDescriptor &file : files) ForkedChild::keepFrom(file.number());
  files.clear();
  openFiles(200);
  ForkedChild::keepFrom(files.back().number());
  EXPECT_EQ(filesOfAChild(), 200 - 1);
}

TEST_F(ForkedChildTest, NoNumberIsNoFile) {
  ForkedChild::keepFrom(-1);
  openFiles(1);
  EXPECT_EQ(filesOfAChild(), 1);
}

}  // namespace
}  // namespace kx
