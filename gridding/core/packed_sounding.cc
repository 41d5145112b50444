#include "gridding/core/packed_sounding.h"

#include <bit>
#include <cmath>

#include "gridding/survey/soundings.h"

namespace quarro::core {

namespace {

// Bounds of what is offered to a grid, with room to spare.
constexpr float kWidestCell_m = 100000.0F;
constexpr float kLeastSigma_m = 0.0005F;
constexpr float kGreatestSigma_m = 1e7F;

std::uint16_t Encode(float sigma_m) {
  const auto bits = std::bit_cast<std::uint32_t>(sigma_m);
  const std::uint32_t rounded =
      (bits + (1U << (PackedSounding::kDroppedBits - 1))) >> PackedSounding::kDroppedBits;
  return static_cast<std::uint16_t>(rounded);
}

}  // namespace

PackedSounding Pack(Position position, Position node, float depth_m, float sigma_v_m,
                    float sigma_h_m) {
  return {.east_m = static_cast<float>(position.easting_m - node.easting_m),
          .north_m = static_cast<float>(position.northing_m - node.northing_m),
          .depth_m = depth_m,
          .sigma_v_code = Encode(sigma_v_m),
          .sigma_h_code = Encode(sigma_h_m)};
}

bool IsPossible(const PackedSounding& sounding) {
  // Written so that what is no number fails.
  const auto is_offset = [](float metres) { return std::abs(metres) <= kWidestCell_m; };
  const auto is_sigma = [](float metres) {
    return metres >= kLeastSigma_m && metres <= kGreatestSigma_m;
  };
  return is_offset(sounding.east_m) && is_offset(sounding.north_m) &&
         std::abs(sounding.depth_m) <= survey::kDeepest_m && is_sigma(sounding.sigma_v_m()) &&
         is_sigma(sounding.sigma_h_m());
}

}  // namespace quarro::core
