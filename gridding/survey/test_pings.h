// Pings for tests that write lines in the Generic Sensor Format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "gridding/survey/gsf_writer.h"

namespace quarro::survey {

// What the arrays of a ping hold, of equal length.
struct PingArrays {
  std::vector<float> depth_m;
  std::vector<float> across_m;
  std::vector<float> along_m;
  std::vector<float> vertical_m;    // 95 %
  std::vector<float> horizontal_m;  // 95 %, radial
  std::vector<std::uint8_t> flags;

  // A ping at 0, 0 that borrows them.
  GsfPing Ping() const {
    GsfPing ping;
    ping.beams = depth_m.size();
    ping.depth_m = depth_m;
    ping.across_m = across_m;
    ping.along_m = along_m;
    ping.vertical_error_m = vertical_m;
    ping.horizontal_error_m = horizontal_m;
    ping.beam_flags = flags;
    return ping;
  }
};

// Beams 1 m apart across the ship, over a flat bottom.
inline PingArrays FlatSwath(std::size_t beams, float depth_m) {
  PingArrays swath{.depth_m = std::vector<float>(beams, depth_m),
                   .across_m = std::vector<float>(beams),
                   .along_m = std::vector<float>(beams, 0.0F),
                   .vertical_m = std::vector<float>(beams, 0.2F),
                   .horizontal_m = std::vector<float>(beams, 0.5F),
                   .flags = std::vector<std::uint8_t>(beams, 0)};
  for (std::size_t i = 0; i < beams; ++i) {
    swath.across_m[i] = static_cast<float>(i) - static_cast<float>(beams / 2);
  }
  return swath;
}

}  // namespace quarro::survey
