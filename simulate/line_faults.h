// What is wrong with a line as a whole: its gaps and bursts, its refraction and its offset.
#pragma once

#include <cstdint>
#include <vector>

#include "simulate/survey_options.h"

namespace quarro::simulate {

// The faults of one line, a function of the options and the line alone. Constant after
// construction.
class LineFaults {
 public:
  // `line` counts from 0.
  LineFaults(const SurveyOptions& options, std::uint32_t line, std::uint32_t pings);

  // Whether the ping lies in a gap.
  bool Missing(std::uint32_t ping) const;

  // The beams of the ping that a burst takes, [first, end); empty where first equals end.
  struct Beams {
    std::uint32_t first = 0;
    std::uint32_t end = 0;
  };
  Beams BurstIn(std::uint32_t ping) const;

  // What refraction makes of depths: the part by which a beam at the outermost angle is too deep.
  double refraction() const { return refraction_; }
  // By how much all depths are too deep.
  double offset_m() const { return offset_m_; }

 private:
  struct Burst {
    std::uint32_t first_ping;
    std::uint32_t first_beam;
  };

  std::uint32_t gap_pings_;
  std::uint32_t burst_pings_;
  std::uint32_t burst_beams_;
  double refraction_ = 0.0;
  double offset_m_ = 0.0;
  std::vector<std::uint32_t> gaps_;  // their first pings, ascending
  std::vector<Burst> bursts_;        // by first_ping, ascending
};

}  // namespace quarro::simulate
