#include "gridding/service/expected_duration.h"

#include <gtest/gtest.h>

namespace quarro::service {
namespace {

TEST(ExpectedDuration, IsAboveZeroBeforeAnythingHasEndedAndGrowsWithTheBox) {
  const ExpectedDuration expected;
  EXPECT_GT(expected.Of(RequestKind::kQuery, {}), 0.0);
  EXPECT_GT(expected.Of(RequestKind::kDepth, {1e6, false}),
            10.0 * expected.Of(RequestKind::kDepth, {1.0, false}));
  EXPECT_GT(expected.Of(RequestKind::kDepth, {1e6, true}),
            expected.Of(RequestKind::kDepth, {1e6, false}));
}

TEST(ExpectedDuration, IsWhatACellTookTimesTheCellsOfTheBox) {
  ExpectedDuration expected;
  expected.Learn(RequestKind::kDepth, {1e6, true}, 20.0);
  EXPECT_NEAR(expected.Of(RequestKind::kDepth, {1e6, true}), 20.0, 1e-6);
  EXPECT_NEAR(expected.Of(RequestKind::kDepth, {2e6, true}), 40.0, 0.01);
}

TEST(ExpectedDuration, KindsAndResolutionsAreLearntApart) {
  ExpectedDuration expected;
  const double before_s = expected.Of(RequestKind::kHypotheses, {1e6, true});
  const double low_before_s = expected.Of(RequestKind::kDepth, {1e6, false});
  expected.Learn(RequestKind::kDepth, {1e6, true}, 500.0);
  EXPECT_EQ(expected.Of(RequestKind::kHypotheses, {1e6, true}), before_s);
  EXPECT_EQ(expected.Of(RequestKind::kDepth, {1e6, false}), low_before_s);
}

TEST(ExpectedDuration, FollowsLateRequestsAndHardlyOneOfASingleCell) {
  ExpectedDuration expected;
  expected.Learn(RequestKind::kDepth, {1e6, true}, 10.0);
  expected.Learn(RequestKind::kDepth, {1.0, true}, 1.0);
  EXPECT_NEAR(expected.Of(RequestKind::kDepth, {1e6, true}), 10.0, 2.0);
  for (int i = 0; i < 20; ++i) expected.Learn(RequestKind::kDepth, {1e6, true}, 30.0);
  EXPECT_NEAR(expected.Of(RequestKind::kDepth, {1e6, true}), 30.0, 0.5);
}

TEST(ExpectedDuration, RequestsShorterThanTheFixedPartLeaveItAboveZero) {
  ExpectedDuration expected;
  expected.Learn(RequestKind::kDepth, {4.0, false}, 1e-6);
  EXPECT_GT(expected.Of(RequestKind::kDepth, {4.0, false}), 0.0);
}

}  // namespace
}  // namespace quarro::service
