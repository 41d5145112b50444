// A sounding as cells keep it, in memory and on disc.
#pragma once

#include <bit>
#include <cstdint>

#include "gridding/core/lattice.h"

namespace quarro::core {

// 16 bytes. Offsets from the cell's node are single precision: for cells of a kilometre they are
// off by at most 0.03 mm; a depth of 8,000 m by 0.25 mm. Uncertainties keep 8 bits after the
// leading one, so they are off by at most 0.2 %. What every estimate is computed from is this form,
// so a grid read back from disc gives the same bits as one just filled.
struct PackedSounding {
  float east_m = 0.0F;   // of the cell's node
  float north_m = 0.0F;  // of the cell's node
  float depth_m = 0.0F;
  std::uint16_t sigma_v_code = 0;
  std::uint16_t sigma_h_code = 0;

  float sigma_v_m() const { return Decode(sigma_v_code); }
  float sigma_h_m() const { return Decode(sigma_h_code); }
  friend bool operator==(const PackedSounding&, const PackedSounding&) = default;

  // The sign of a positive number is always clear, so the 16 bits below it hold all of the exponent
  // and the first 8 bits of the fraction.
  static constexpr int kDroppedBits = 15;
  static float Decode(std::uint16_t code) {
    return std::bit_cast<float>(static_cast<std::uint32_t>(code) << kDroppedBits);
  }
};
static_assert(sizeof(PackedSounding) == 16);

// A run of soundings of one survey line.
struct LineRun {
  std::uint32_t line = 0;  // the grid's sequence number
  std::uint32_t count = 0;
  friend bool operator==(const LineRun&, const LineRun&) = default;
};

// Uncertainties are positive and finite, in metres.
PackedSounding Pack(Position position, Position node, float depth_m, float sigma_v_m,
                    float sigma_h_m);

// False for values that no sounding offered to a grid has: what is no number, a depth that no place
// on Earth has, an uncertainty of 0.
bool IsPossible(const PackedSounding& sounding);

}  // namespace quarro::core
