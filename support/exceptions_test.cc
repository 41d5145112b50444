// The chain by which callers catch, and the text that they print.
#include "support/exceptions.h"

#include <stdexcept>

#include <gtest/gtest.h>

namespace quarro {
namespace {

TEST(Exceptions, FailuresOfTheEngineAreCaughtAtEveryLevelOfTheChain) {
  EXPECT_THROW(throw ExSGClientBase("x"), ExQuarro);
  EXPECT_THROW(throw ExSGClientBase("x"), ExTarn);
  EXPECT_THROW(throw ExSGClientBase("x"), std::runtime_error);
}

TEST(Exceptions, WhoIsTheReasonUnlessAClassSaysMore) {
  struct Detailed : ExTarn {
    using ExTarn::ExTarn;
    std::string who() const override { return std::string("host alpha: ") + what(); }
  };
  EXPECT_EQ(ExSGClientBase("no reply").who(), "no reply");
  const Detailed detailed("no reply");
  const ExTarn& base = detailed;
  EXPECT_EQ(base.who(), "host alpha: no reply");
  EXPECT_STREQ(base.what(), "no reply");
}

}  // namespace
}  // namespace quarro
