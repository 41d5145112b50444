// Where the ship is at each ping of a simulated survey.
#include "simulate/survey_plan.h"

#include <cmath>
#include <limits>
#include <numbers>
#include <string>

namespace quarro::simulate {
namespace {

constexpr double kDegrees = 180.0 / std::numbers::pi;  // a radian

void CheckRuns(const char* option, std::uint32_t runs, std::uint32_t length, std::uint32_t room) {
  if (std::uint64_t{runs} * length <= room) return;
  throw SimulationError("--" + std::string(option) + " is " + std::to_string(runs) + " of " +
                        std::to_string(length) + " pings a line; a line has room for " +
                        std::to_string(room / length) + ": give fewer or a longer line");
}

constexpr double kStart_s = 1577836800.0;  // 2020-01-01

// When a line begins: the turn onto it takes five minutes.
double StartOfLine_s(const SurveyOptions& options, std::uint32_t line) {
  constexpr double kTurn_s = 300.0;
  return kStart_s + std::ceil(line * (options.line_length_m / options.speed_m_s + kTurn_s));
}

// Files tell times as seconds of 31 bits.
void CheckTimes(const SurveyOptions& options) {
  constexpr double kLast_s = std::numeric_limits<std::int32_t>::max();
  const double end_s = std::ceil(StartOfLine_s(options, options.lines - 1) +
                                 options.line_length_m / options.speed_m_s);
  if (end_s <= kLast_s) return;
  constexpr double kDay_s = 86400.0;
  const auto days = [](double seconds) { return std::to_string(std::llround(seconds / kDay_s)); };
  throw SimulationError("--lines, --line-length and --speed make a survey of " +
                        days(end_s - kStart_s) + " days, which begins on 2020-01-01; the times " +
                        "of files end after " + days(kLast_s - kStart_s) +
                        " days, in 2038: give fewer or shorter lines, or a greater --speed");
}

double Rounded(double value, double steps) { return std::round(value * steps) / steps; }

}  // namespace

SurveyPlan::SurveyPlan(const SurveyOptions& options) : options_(options) {
  options.Check();
  const survey::UtmZone zone(options.Zone());
  if (!zone.Frame(options.longitude_deg, options.latitude_deg, origin_)) {
    throw SimulationError("the survey's origin cannot be projected");
  }
  grid_azimuth_rad_ = options.heading_deg / kDegrees - origin_.convergence_rad;
  const double pings =
      std::floor(options.line_length_m / options.speed_m_s * options.ping_rate_hz * (1.0 + 1e-12));
  constexpr double kMostPings = 1e8;
  if (pings > kMostPings) {
    throw SimulationError("a line of " + std::to_string(static_cast<std::uint64_t>(pings)) +
                          " pings is too long: shorten --line-length or lower --ping-rate");
  }
  pings_per_line_ = static_cast<std::uint32_t>(pings) + 1;
  CheckTimes(options);
  CheckRuns("gaps", options.gaps, options.gap_pings, pings_per_line_ - 1);
  CheckRuns("bursts", options.bursts, options.burst_pings, pings_per_line_);
}

survey::GridPoint SurveyPlan::At(double along_m, double across_m) const {
  const double sine = std::sin(grid_azimuth_rad_);
  const double cosine = std::cos(grid_azimuth_rad_);
  return {origin_.origin.easting_m + origin_.scale * (sine * along_m + cosine * across_m),
          origin_.origin.northing_m + origin_.scale * (cosine * along_m - sine * across_m)};
}

ShipFix SurveyPlan::Fix(std::uint32_t line, std::uint32_t ping, const survey::UtmZone& zone) const {
  const bool back = line % 2 == 1;
  const double sailed_m = ping * options_.speed_m_s / options_.ping_rate_hz;
  const double along_m = (back ? -1.0 : 1.0) * (sailed_m - options_.line_length_m / 2.0);
  const double across_m = (line - (options_.lines - 1) / 2.0) * options_.Spacing_m();

  ShipFix fix;
  fix.time_ns = std::llround(StartOfLine_s(options_, line) * 1e3) * 1'000'000 +
                std::llround(ping / options_.ping_rate_hz * 1e9);
  if (!zone.Inverse(At(along_m, across_m), fix.longitude_deg, fix.latitude_deg)) {
    throw SimulationError("the survey leaves the projection: shorten --line-length");
  }
  fix.longitude_deg = std::remainder(fix.longitude_deg, 360.0);
  fix.longitude_deg = Rounded(fix.longitude_deg, 1e7);
  fix.latitude_deg = Rounded(fix.latitude_deg, 1e7);
  if (!zone.Frame(fix.longitude_deg, fix.latitude_deg, fix.frame)) {
    throw SimulationError("the survey leaves the projection: shorten --line-length");
  }
  const double grid_azimuth_deg = grid_azimuth_rad_ * kDegrees + (back ? 180.0 : 0.0);
  const double heading_deg = Rounded(grid_azimuth_deg + fix.frame.convergence_rad * kDegrees, 100);
  fix.heading_deg = heading_deg - 360.0 * std::floor(heading_deg / 360.0);
  return fix;
}

}  // namespace quarro::simulate
