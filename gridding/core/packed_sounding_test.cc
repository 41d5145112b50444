#include "gridding/core/packed_sounding.h"

#include <cmath>

#include <gtest/gtest.h>

namespace quarro::core {
namespace {

TEST(PackedSounding, KeepsThePlaceRelativeToTheNode) {
  const PackedSounding packed =
      Pack({500012.25, 4700000.5}, {500010.0, 4700010.0}, 31.5F, 0.125F, 2.0F);
  EXPECT_EQ(packed.east_m, 2.25F);
  EXPECT_EQ(packed.north_m, -9.5F);
  EXPECT_EQ(packed.depth_m, 31.5F);
  EXPECT_EQ(packed.sigma_v_m(), 0.125F);
  EXPECT_EQ(packed.sigma_h_m(), 2.0F);
}

TEST(PackedSounding, UncertaintiesAreOffByAtMostAFifthOfAPercent) {
  for (float sigma_m = 0.001F; sigma_m < 500.0F; sigma_m *= 1.0137F) {
    const PackedSounding packed = Pack({0, 0}, {0, 0}, 0.0F, sigma_m, sigma_m);
    EXPECT_LE(std::abs(packed.sigma_v_m() - sigma_m), 0.002F * sigma_m);
    EXPECT_EQ(packed.sigma_v_m(), packed.sigma_h_m());
  }
}

}  // namespace
}  // namespace quarro::core
