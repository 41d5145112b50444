// What a simulated survey is like: its checks and what follows from it.
#include "simulate/survey_options.h"

#include <cmath>
#include <numbers>
#include <sstream>
#include <utility>

namespace quarro::simulate {
namespace {

void CheckNumbers(const char* option, const std::vector<std::uint32_t>& numbers,
                  std::uint32_t lines) {
  for (const std::uint32_t line : numbers) CheckRange(option, line, 1, lines);
}

}  // namespace

void CheckRange(const char* option, double value, double lowest, double highest) {
  if (value >= lowest && value <= highest) return;
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "--" << option << " is " << value << "; it must lie between " << lowest << " and "
       << highest;
  throw SimulationError(text.str());
}

void SurveyOptions::Check() const {
  CheckRange("depth", depth_m, 1.0, survey::kDeepest_m);
  CheckRange("slope", slope, -2.0, 2.0);
  CheckRange("slope-azimuth", slope_azimuth_deg, -360.0, 360.0);
  CheckRange("wave-amplitude", wave_amplitude_m, 0.0, 1000.0);
  CheckRange("wave-length", wave_length_m, 0.1, 1e6);
  CheckRange("wave-azimuth", wave_azimuth_deg, -360.0, 360.0);
  CheckRange("rocks", rock_count, 0, 1e7);
  CheckRange("rock-height", rock_height_m, 0.0, 1000.0);
  CheckRange("rock-width", rock_width_m, 0.01, 10000.0);
  CheckRange("wreck-height", wreck_height_m, 0.0, 1000.0);
  CheckRange("wreck-width", wreck_width_m, 0.01, 10000.0);
  CheckRange("wreck-length", wreck_length_m, wreck_width_m, 10000.0);
  CheckRange("wreck-east", wreck_east_m, -1e6, 1e6);
  CheckRange("wreck-north", wreck_north_m, -1e6, 1e6);
  CheckRange("wreck-azimuth", wreck_azimuth_deg, -360.0, 360.0);
  CheckRange("scarp-height", scarp_height_m, -10000.0, 10000.0);
  CheckRange("scarp-width", scarp_width_m, 0.01, 100000.0);
  CheckRange("canyon-depth", canyon_depth_m, 1.0, survey::kDeepest_m);
  CheckRange("canyon-width", canyon_width_m, 0.01, 1e6);
  CheckRange("lines", lines, 1, 9999);
  CheckRange("line-length", line_length_m, 1.0, 200000.0);
  CheckRange("line-spacing", line_spacing_m, 0.0, 100000.0);
  CheckRange("overlap", overlap, -2.0, 0.99);
  CheckRange("latitude", latitude_deg, -80.0, 84.0);
  CheckRange("longitude", longitude_deg, -180.0, 180.0);
  CheckRange("heading", heading_deg, 0.0, 360.0);
  CheckRange("beams", beams, 1, 32767);
  CheckRange("swath", swath_deg, 0.0, 160.0);
  CheckRange("ping-rate", ping_rate_hz, 0.01, 100.0);
  CheckRange("speed", speed_m_s, 0.1, 30.0);
  CheckRange("noise", noise, 0.0, 100.0);
  CheckRange("spikes", spikes, 0.0, 1.0);
  CheckRange("flagged", flagged, 0.0, 1.0);
  CheckRange("spikes and --flagged together", spikes + flagged, 0.0, 1.0);
  for (const auto& [option, value] :
       {std::pair{"vertical-fixed", uncertainty.vertical_fixed_m},
        {"vertical-proportional", uncertainty.vertical_proportional},
        {"horizontal-fixed", uncertainty.horizontal_fixed_m},
        {"horizontal-proportional", uncertainty.horizontal_proportional},
        {"angle-growth", uncertainty.angle_growth}}) {
    CheckRange(option, value, 0.0, 1000.0);
  }
  CheckRange("bursts", bursts, 0, 1e6);
  CheckRange("burst-pings", burst_pings, 1, 1e6);
  if (bursts > 0) CheckRange("burst-beams", burst_beams, 1, beams);
  CheckRange("burst-depth", burst_depth_fraction, 0.01, 2.0);
  CheckRange("burst-swath", burst_swath_fraction, 0.0, 1.0);
  CheckNumbers("smile-lines", smile_lines, lines);
  CheckRange("smile", smile_fraction, -0.5, 0.5);
  CheckNumbers("offset-lines", offset_lines, lines);
  CheckRange("offset", offset_m, -1000.0, 1000.0);
  CheckRange("gaps", gaps, 0, 1e6);
  CheckRange("gap-pings", gap_pings, 1, 1e6);
}

double SurveyOptions::Spacing_m() const {
  if (line_spacing_m > 0.0) return line_spacing_m;
  const double half_rad = swath_deg / 2.0 * std::numbers::pi / 180.0;
  return std::max(2.0 * depth_m * std::tan(half_rad) * (1.0 - overlap), 1.0);
}

int SurveyOptions::Zone() const { return survey::UtmZoneOf(longitude_deg, latitude_deg); }

}  // namespace quarro::simulate
