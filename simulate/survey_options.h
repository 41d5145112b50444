// What a simulated survey is like.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "gridding/survey/georeference.h"
#include "support/exceptions.h"

namespace quarro::simulate {

// A survey that cannot be simulated or written. The text names the option or the file, and why.
class SimulationError : public ExTarn {
 public:
  using ExTarn::ExTarn;
};

// Throws SimulationError naming the option, its value and what is allowed, unless the value lies
// between the two others.
void CheckRange(const char* option, double value, double lowest, double highest);

struct SurveyOptions {
  // The seafloor: "flat", "slope", "waves", "rocks" (with the wreck), "scarp", "canyon" or "mix".
  std::string seafloor = "slope";
  double depth_m = 50.0;            // at the origin, without what stands on the floor there
  double slope = 0.02;              // metres of depth a metre of way, of "slope" and "mix"
  double slope_azimuth_deg = 45.0;  // of the way that deepens, clockwise from grid north, of
                                    // "slope", "scarp" and "canyon"
  // Sand waves, of "waves" and "mix".
  double wave_amplitude_m = 1.0;   // from the mean depth to a crest
  double wave_length_m = 40.0;     // from crest to crest
  double wave_azimuth_deg = 30.0;  // across the crests, clockwise from grid north
  // Boulders, scattered by the seed over the rectangle of the lines ("mix": its middle third).
  std::uint32_t rock_count = 50;
  double rock_height_m = 1.0;  // above the floor
  double rock_width_m = 2.0;   // from side to side
  // The wreck, of "rocks" and "mix"; none where its height is 0.
  double wreck_height_m = 3.0;
  double wreck_width_m = 4.0;
  double wreck_length_m = 30.0;    // the width at least
  double wreck_east_m = 0.0;       // of its middle, from the origin
  double wreck_north_m = 0.0;      // of its middle, from the origin
  double wreck_azimuth_deg = 0.0;  // of its length, clockwise from grid north
  // The step of "scarp", its middle at the origin, and of "mix".
  double scarp_height_m = 5.0;
  double scarp_width_m = 2.0;  // of the way on which it falls
  // "canyon" falls from the shelf's edge at the origin, depth_m deep, to its floor; "mix" from an
  // edge near the far end of the lines.
  double canyon_depth_m = 4000.0;
  double canyon_width_m = 10000.0;  // of the way on which it falls

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
  // Bursts: fish that some pings running take for the floor, not flagged.
  std::uint32_t bursts = 0;           // a line
  std::uint32_t burst_pings = 4;      // a burst
  std::uint32_t burst_beams = 12;     // neighbours, in each of its pings
  double burst_depth_fraction = 0.7;  // of the depth of the floor behind
  double burst_swath_fraction = 0.5;  // the middle part of the swath in which bursts lie: 0 under
                                      // the keel, 1 anywhere
  // Refraction: depths too shallow (fraction above 0) or too deep (below) by
  // fraction * depth * (tan(angle) / tan(outermost angle))^2 on these lines, numbered from 1.
  std::vector<std::uint32_t> smile_lines;
  double smile_fraction = 0.01;
  // Lines, numbered from 1, whose depths are all this much too deep (below 0: too shallow).
  std::vector<std::uint32_t> offset_lines;
  double offset_m = 0.3;
  // Gaps: pings running that are missing.
  std::uint32_t gaps = 0;  // a line
  std::uint32_t gap_pings = 20;
  std::uint64_t seed = 1;

  // Throws SimulationError naming the option, its value and what is allowed.
  void Check() const;
  // Between neighbouring lines.
  double Spacing_m() const;
  // The UTM zone of the origin, negative in the southern hemisphere.
  int Zone() const;
};

}  // namespace quarro::simulate
