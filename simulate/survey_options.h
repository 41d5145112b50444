// What a simulated survey is like.
#pragma once

#include <cstdint>
#include <string>

#include "gridding/survey/georeference.h"
#include "support/exceptions.h"

namespace quarro::simulate {

// A survey that cannot be simulated or written. The text names the option or the file, and why.
class SimulationError : public ExTarn {
 public:
  using ExTarn::ExTarn;
};

struct SurveyOptions {
  // The seafloor: "flat" or "slope".
  std::string seafloor = "slope";
  double depth_m = 50.0;            // at the origin
  double slope = 0.02;              // metres of depth a metre of way, of "slope"
  double slope_azimuth_deg = 45.0;  // of the way that deepens, clockwise from grid north

  // The lines: parallel, each sailed against the one before, their middle at the origin.
  std::uint32_t lines = 5;
  double line_length_m = 1000.0;
  double line_spacing_m = 0.0;  // 0: as the overlap tells
  double overlap = 0.25;        // of neighbouring swaths on a floor of depth_m, a part of one
  double latitude_deg = 56.0;   // of the origin
  double longitude_deg = 4.0;
  double heading_deg = 30.0;  // of the first line, from true north

  // The ship and its echosounder.
  std::uint32_t beams = 256;
  double swath_deg = 130.0;  // between the outermost beams, equal angles between the others
  double ping_rate_hz = 5.0;
  double speed_m_s = 4.0;

  // Its errors.
  survey::UncertaintyModel uncertainty;
  double noise = 1.0;    // multiplies the errors made, not those told in the files
  double spikes = 0.0;   // part of the beams that are grossly wrong and not flagged
  double flagged = 0.0;  // part of the beams that are grossly wrong and flagged
  std::uint64_t seed = 1;

  // Throws SimulationError naming the option, its value and what is allowed.
  void Check() const;
  // Between neighbouring lines.
  double Spacing_m() const;
  // The UTM zone of the origin, negative in the southern hemisphere.
  int Zone() const;
};

}  // namespace quarro::simulate
