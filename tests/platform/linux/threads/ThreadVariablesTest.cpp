#include <gtest/gtest.h>

#include <array>
#include <atomic>

#include "platform/linux/https/CurlURLSession.h"
#include "platform/linux/threads/LinuxDispatch.h"
#include "platform/linux/threads/LinuxThread.h"
#include "tests/support/ChildProcess.h"

namespace kx {
namespace {

/// What the C library puts onto the stack of every thread.
thread_local std::array<volatile char, std::size_t{600} * 1024> variables;

class ThreadVariables : public testing::Test {
 protected:
  void SetUp() override { variables.front() = 1; }
};

std::atomic<bool> ran{false};

TEST_F(ThreadVariables, LeaveAThreadTheStackThatItAsksFor) {
  constexpr std::size_t size = std::size_t{64} * 1024;
  const int error = startDetachedThread(
      size,
      [](void *) -> void * {
        std::array<volatile char, size - 16384> used{};
        used.front() = 1;
        ran = used.back() == 0;
        return nullptr;
      },
      nullptr);
  EXPECT_EQ(error, 0);
  EXPECT_TRUE(eventually([] { return ran.load(); }));
}

TEST_F(ThreadVariables, KeepNoTaskAndNoRequestFromRunning) {
  static auto &dispatch = *new LinuxDispatch(LinuxRunLoop::of(g_main_context_default()));
  static CurlURLSessionService service(dispatch, std::nullopt);
  static std::atomic<long> code{0};
  URLRequest request(URL{"https://user@127.0.0.1/"});  // which curl refuses by itself
  request.HTTPMethod = "POST";
  service.sessionWithDefaultConfiguration()
      ->uploadTaskWithRequest(request, Data(),
                              [](const auto &, const auto &error) {
                                if (error && error->domain == "libcurl") code = error->code;
                              })
      ->resume();
  constexpr long loginDenied = 67;
  EXPECT_TRUE(eventually([] { return code == loginDenied; })) << code;
}

}  // namespace
}  // namespace kx
