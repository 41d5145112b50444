#include "gridding/core/packed_sounding.h"

#include <cmath>
#include <limits>
#include <vector>

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

TEST(PackedSounding, ValuesThatNoSoundingHasAreNotPossible) {
  constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  const PackedSounding good = Pack({3.0, 4.0}, {0.0, 0.0}, -20.0F, 0.02F, 12000.0F);
  EXPECT_TRUE(IsPossible(good));
  std::vector<PackedSounding> wrong(8, good);
  wrong[0].east_m = kNaN;
  wrong[1].north_m = -kInfinity;
  wrong[2].depth_m = kNaN;
  wrong[3].sigma_v_code = 0;
  wrong[4].sigma_h_code = 0xff80;  // no number
  wrong[5].sigma_h_code = 0xff00;  // infinity
  wrong[6].depth_m = 1e30F;
  wrong[7].east_m = 1e30F;
  for (std::size_t i = 0; i < wrong.size(); ++i) EXPECT_FALSE(IsPossible(wrong[i])) << i;
}

}  // namespace
}  // namespace quarro::core
