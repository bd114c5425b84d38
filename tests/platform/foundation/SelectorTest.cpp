#include <gtest/gtest.h>

#include "KXPublisher/platform/foundation/Selector.h"

namespace kx {
namespace {

class Letter : public Object {};
class Parcel : public Object {};

class Box : public Object {
 public:
  void receive(const std::shared_ptr<Letter> &letter) {
    ++received;
    last = letter;
  }

  int received = 0;
  std::shared_ptr<Letter> last;
};

const Selector receive = Selector::of<&Box::receive>("receive:");

TEST(Selector, CarriesItsKeywordName) {
  EXPECT_STREQ(receive.name(), "receive:");
}

TEST(Selector, CallsItsOperationWithTheArgument) {
  Box box;
  const auto letter = std::make_shared<Letter>();
  receive.perform(box, letter);
  EXPECT_EQ(box.received, 1);
  EXPECT_EQ(box.last, letter);
}

TEST(Selector, PassesAnAbsentArgumentOn) {
  Box box;
  receive.perform(box, nullptr);
  EXPECT_EQ(box.received, 1);
  EXPECT_EQ(box.last, nullptr);
}

TEST(Selector, DoesNothingOnATargetWithoutTheOperation) {
  Letter letter;
  receive.perform(letter, nullptr);
}

TEST(Selector, DoesNothingWithAnArgumentOfAnotherKind) {
  Box box;
  receive.perform(box, std::make_shared<Parcel>());
  EXPECT_EQ(box.received, 0);
}

TEST(Selector, IsNullUnlessItNamesAnOperation) {
  EXPECT_TRUE(static_cast<bool>(receive));
  const Selector none;
  EXPECT_FALSE(static_cast<bool>(none));
  EXPECT_EQ(none.name(), nullptr);
  Box box;
  none.perform(box, nullptr);
  EXPECT_EQ(box.received, 0);
}

}  // namespace
}  // namespace kx
