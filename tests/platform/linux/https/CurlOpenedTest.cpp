#include <dlfcn.h>

#include <fstream>

#include "tests/platform/linux/https/HTTPSTest.h"
#include "tests/platform/linux/https/InterposedCalls.h"

namespace kx {
namespace {

using ::testing::HasSubstr;

constexpr long failedInit = 2;

/// curl where it is opened at run time, and may not be there.
class CurlOpenedTest : public HTTPSTest {
 protected:
  CurlOpenedTest() { settings.linger = std::chrono::milliseconds(0); }

  static bool isLoaded(const char *library) {
    void *const found = dlopen(library, RTLD_NOW | RTLD_NOLOAD);
    if (found != nullptr) dlclose(found);
    return found != nullptr;
  }

  std::string missingFile() const { return directory.path() + "/libcurl.so.4"; }

  void expectFailure(const std::string &library, const std::string &reason) {
    InterposedCalls::openInsteadOfCurl(library);
    const auto outcome = post(server.url());
    ASSERT_TRUE(outcome.error);
    EXPECT_EQ(outcome.error->domain, "libcurl");
    EXPECT_EQ(outcome.errorCode(), failedInit);
    EXPECT_THAT(outcome.errorText(), HasSubstr(reason));
    EXPECT_EQ(outcome.threadName, "kx-transport");
    EXPECT_EQ(server.connections(), 0);
  }

  /// When the last thread has gone, the next request has one of its own.
  void expectSuccessOnceItIsThere() {
    EXPECT_TRUE(eventually([] { return threadsNamed("kx-transport") == 0; }));
    InterposedCalls::openInsteadOfCurl("");
    EXPECT_EQ(post(server.url()).status(), 200);
  }
};

TEST_F(CurlOpenedTest, IsNotLoadedBeforeTheFirstRequest) {
  EXPECT_TRUE(service().URLWithString(server.url()));
  const auto first = task(request(server.url()));
  EXPECT_FALSE(isLoaded("libcurl.so.4"));
  first->resume();
  EXPECT_EQ(waitForOutcomes(1).at(0).status(), 200);
  EXPECT_TRUE(isLoaded("libcurl.so.4"));
}

TEST_F(CurlOpenedTest, ItsFunctionsAreNotTheHosts) {
  EXPECT_EQ(post(server.url()).status(), 200);
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "curl_easy_setopt"), nullptr);
}

TEST_F(CurlOpenedTest, RequestsFailWhereThereIsNone) {
  expectFailure(missingFile(), missingFile());
  for (int i = 0; i < 10; ++i) task(request(server.url()))->resume();
  for (const auto &outcome : waitForOutcomes(11)) EXPECT_EQ(outcome.errorCode(), failedInit);
  expectSuccessOnceItIsThere();
}

TEST_F(CurlOpenedTest, RequestsFailWhereTheFileIsDamaged) {
  std::ofstream(missingFile()) << "not a library";
  expectFailure(missingFile(), missingFile());
  expectSuccessOnceItIsThere();
}

TEST_F(CurlOpenedTest, RequestsFailWhereItLacksAFunction) {
  expectFailure(KX_NO_CURL, "libcurl.so.4 has no curl_");
  EXPECT_TRUE(eventually([] { return !isLoaded(KX_NO_CURL); })) << "it is let go of";
  expectSuccessOnceItIsThere();
}

TEST_F(CurlOpenedTest, RequestsFailWhereItIsTooOld) {
  expectFailure(KX_OLD_CURL, "libcurl.so.4 is of version 7.86.9");
  EXPECT_TRUE(eventually([] { return !isLoaded(KX_OLD_CURL); })) << "it is let go of";
  expectSuccessOnceItIsThere();
}

TEST_F(CurlOpenedTest, WhereThereIsNoneAHostEndsAtOnce) {
  for (const char *how : {"return", "exit-elsewhere"}) {
    // More than one, since any may have waited for the processor.
    bool someDoes = false;
    for (int i = 0; i < 5 && !someDoes; ++i) {
      ChildProcess host({programBeside("exiting-host"), server.url(), *settings.certificateAuthorityFile, "0",
                         "answered", how},
                        {"KX_TEST_CURL=" + missingFile()});
      someDoes = host.exitCode() == 7;
    }
    EXPECT_TRUE(someDoes) << how;
  }
}

}  // namespace
}  // namespace kx
