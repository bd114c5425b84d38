#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <map>
#include <memory>

#include "tools/collector/DuplicateCheck.h"

namespace kx::collector {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A stream that has, by their numbers, these messages, and gives no answer of any other.
class DuplicateCheckTest : public ::testing::Test {
 protected:
  std::map<std::uint64_t, std::string> kept;
  std::vector<std::uint64_t> asked;  // the check's own thread's, until it has answered
  std::promise<void> mayAnswer;
  std::shared_future<void> answering = mayAnswer.get_future().share();
  bool hasToWait = false;
  std::unique_ptr<DuplicateCheck> check;

  void SetUp() override {
    check = std::make_unique<DuplicateCheck>([this](std::uint64_t sequence) -> std::optional<std::string> {
      if (hasToWait) answering.wait();
      asked.push_back(sequence);
      const auto found = kept.find(sequence);
      if (found == kept.end()) return std::nullopt;
      return found->second;
    });
  }

  std::future<bool> ask(std::uint64_t sequence, const std::string &id) {
    auto told = std::make_shared<std::promise<bool>>();
    auto answer = told->get_future();
    check->check(sequence, id, [told](bool isThere) { told->set_value(isThere); });
    return answer;
  }
};

TEST_F(DuplicateCheckTest, FindsAMessageThatIsThere) {
  kept[7] = "a";
  EXPECT_TRUE(ask(7, "a").get());
  EXPECT_THAT(asked, ElementsAre(7));
}

TEST_F(DuplicateCheckTest, DoesNotFindOneThatHasNoNumberYet) {
  kept[0] = "a";
  EXPECT_FALSE(ask(0, "a").get());
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(DuplicateCheckTest, DoesNotTakeAnotherOneForIt) {
  kept[7] = "b";
  EXPECT_FALSE(ask(7, "a").get());
}

TEST_F(DuplicateCheckTest, DoesNotFindOneThatTheStreamDoesNotKeep) {
  kept[7] = "";
  EXPECT_FALSE(ask(7, "a").get());
}

TEST_F(DuplicateCheckTest, DoesNotFindOneWithoutAnId) {
  kept[7] = "";
  EXPECT_FALSE(ask(7, "").get());
}

TEST_F(DuplicateCheckTest, LooksAtOneAfterTheOther) {
  hasToWait = true;
  kept = {{1, "a"}, {2, "x"}, {3, "c"}};
  auto first = ask(1, "a");
  auto second = ask(2, "b");
  auto third = ask(3, "c");
  mayAnswer.set_value();
  EXPECT_TRUE(first.get());
  EXPECT_FALSE(second.get());
  EXPECT_TRUE(third.get());
}

TEST_F(DuplicateCheckTest, AsksOnceWhereNobodyAnswers) {
  hasToWait = true;
  auto first = ask(1, "a");
  auto second = ask(2, "b");
  auto third = ask(3, "c");
  mayAnswer.set_value();
  EXPECT_FALSE(first.get());
  EXPECT_FALSE(second.get());
  EXPECT_FALSE(third.get());
  EXPECT_THAT(asked, ElementsAre(1));
}

TEST_F(DuplicateCheckTest, AsksAgainWhenSomebodyAnswers) {
  EXPECT_FALSE(ask(1, "a").get());
  kept[2] = "b";
  EXPECT_TRUE(ask(2, "b").get());
}

TEST_F(DuplicateCheckTest, TellsOfAllBeforeItGoes) {
  hasToWait = true;
  kept = {{1, "a"}, {2, "b"}};
  auto first = ask(1, "a");
  auto second = ask(2, "b");
  auto gone = std::async(std::launch::async, [this] { check.reset(); });
  mayAnswer.set_value();
  gone.get();
  first.get();
  second.get();
}

}  // namespace
}  // namespace kx::collector
