// Where the soundings of a simulated survey lie.
#include "simulate/survey_extent.h"

#include <array>
#include <cmath>
#include <numbers>

#include "gridding/survey/georeference.h"
#include "simulate/swath.h"

namespace quarro::simulate {
namespace {

// Calls `visit` with numbers from 0 to `count` - 1, both ends among them: all or at most about
// `most`, evenly spread.
template <typename Visit>
void VisitSome(std::uint32_t count, std::uint32_t most, Visit visit) {
  const std::uint32_t step = (count - 1) / most + 1;
  for (std::uint32_t number = 0; number < count - 1; number += step) visit(number);
  visit(count - 1);
}

void AddSwath(const SurveyOptions& options, const Seafloor& seafloor, const ShipFix& fix,
              Extent& extent) {
  constexpr double kSigmas = 5.0;
  const double tangent =
      options.beams > 1 ? std::tan(options.swath_deg / 2.0 * std::numbers::pi / 180.0) : 0.0;
  const std::array tangents{-tangent, tangent};
  std::array<SwathPoint, 2> struck;
  Swath(seafloor, fix).Strike(tangents, struck);
  const survey::Heading heading(fix.heading_deg, fix.frame);
  for (const SwathPoint& floor : struck) {
    const survey::BeamSigma sigma =
        survey::ModelSigma(options.uncertainty, floor.depth_m, floor.across_m);
    extent.Add(
        fix.frame.ToGrid(heading.East(0.0, floor.across_m), heading.North(0.0, floor.across_m)),
        kSigmas * options.noise * sigma.horizontal_m);
  }
}

}  // namespace

Extent ExtentOfSoundings(const SurveyOptions& options, const SurveyPlan& plan,
                         const Seafloor& seafloor) {
  constexpr std::uint32_t kMostLines = 50;
  constexpr std::uint32_t kMostPings = 1000;
  const survey::UtmZone zone(options.Zone());
  Extent extent;
  VisitSome(options.lines, kMostLines, [&](std::uint32_t line) {
    VisitSome(plan.pings_per_line(), kMostPings, [&](std::uint32_t ping) {
      AddSwath(options, seafloor, plan.Fix(line, ping, zone), extent);
    });
  });
  return extent;
}

}  // namespace quarro::simulate
