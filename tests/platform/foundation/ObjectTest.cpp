#include <gtest/gtest.h>

#include <cstdio>

#include "KXPublisher/platform/foundation/Object.h"

namespace kx {

class Plain : public Object {};

namespace {

class Outside : public Object {
 public:
  std::shared_ptr<Outside> myself() { return strong(*this); }
};

TEST(Object, DescribesItselfByItsClassAndItsAddress) {
  const Plain plain;
  char expected[64];
  std::snprintf(expected, sizeof expected, "<Plain: %p>", static_cast<const void *>(&plain));
  EXPECT_EQ(plain.description(), expected);
}

TEST(Object, IsDescribedDifferentlyFromEveryOtherOneOfItsClass) {
  EXPECT_NE(Plain().description(), std::make_unique<Plain>()->description());
  const Plain first;
  const Plain second;
  EXPECT_NE(first.description(), second.description());
}

TEST(Object, GivesAStrongReferenceToItself) {
  const auto object = std::make_shared<Outside>();
  EXPECT_EQ(object->myself(), object);
}

TEST(Object, GivesNoReferenceWhenItIsNotShared) {
  Outside object;
  EXPECT_EQ(object.myself(), nullptr);
}

}  // namespace
}  // namespace kx
