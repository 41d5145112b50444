// The small bodies of the sounding structures.
#include "gridding/survey/soundings.h"

#include <numeric>

namespace quarro::survey {

void Soundings::Clear() {
  easting_m.clear();
  northing_m.clear();
  depth_m.clear();
  sigma_v_m.clear();
  sigma_h_m.clear();
}

void PingChunk::Clear() {
  projected = false;
  pings.clear();
  depth_m.clear();
  across_m.clear();
  along_m.clear();
  sigma_v_m.clear();
  sigma_h_m.clear();
  unusable.clear();
}

const char* RefusalText(Refusal reason) {
  switch (reason) {
    case Refusal::kIncomplete:
      return "in a ping without depth, across- and along-track arrays or their scale factors";
    case Refusal::kNotFinite:
      return "without a possible depth and offset";
    case Refusal::kPosition:
      return "from a ship position or heading off the globe";
    case Refusal::kZone:
      return "beyond the grid's projection zone";
    case Refusal::kUncertain:
      return "of a horizontal uncertainty wider than a cell";
  }
  return "for an unknown reason";
}

std::uint64_t BeamAccount::Refused() const {
  return std::accumulate(refused.begin(), refused.end(), std::uint64_t{0});
}

}  // namespace quarro::survey
