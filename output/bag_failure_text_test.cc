// The words for each step of making a BAG file that can fail.
#include "output/bag_failure_text.h"

#include <gtest/gtest.h>

namespace quarro {
namespace {

TEST(BagFailureText, NamesTheStepAndTheLibrarysReason) {
  const char* text = nullptr;
  ASSERT_EQ(bagGetErrorString(kBagWriteFailed, &text), 0);
  const std::string reason = text;
  EXPECT_EQ(BagFailureText(BagStep::kInitialisation, kBagWriteFailed),
            "BAG file initialisation failed: " + reason);
  EXPECT_EQ(BagFailureText(BagStep::kCreation, kBagWriteFailed),
            "BAG file creation failed: " + reason);
  EXPECT_EQ(BagFailureText(BagStep::kLayerCreation, kBagWriteFailed),
            "BAG variable resolution layer creation failed: " + reason);
  EXPECT_EQ(BagFailureText(BagStep::kWriting, kBagWriteFailed),
            "BAG file is incomplete: " + reason);
}

TEST(BagFailureText, SaysThatAReasonIsNotKnown) {
  constexpr bagError kNoStatus = 9999;
  EXPECT_EQ(BagFailureText(BagStep::kInitialisation, kNoStatus),
            "BAG file initialisation failed (unknown reason).");
  EXPECT_EQ(BagFailureText(BagStep::kCreation, kNoStatus),
            "BAG file creation failed (unkown reason).");
  EXPECT_EQ(BagFailureText(BagStep::kLayerCreation, kNoStatus),
            "BAG variable resolution layer creation failed (unknown reason).");
  EXPECT_EQ(BagFailureText(BagStep::kWriting, kNoStatus),
            "BAG file is incomplete (unknown reason).");
}

}  // namespace
}  // namespace quarro
