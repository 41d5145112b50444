// What stands on a seafloor: boulders and a wreck.
#include "simulate/obstacles.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "simulate/random.h"

namespace quarro::simulate {

Area Area::OfLines(const SurveyOptions& options, const survey::GridPoint& origin) {
  return {Way(origin, options.heading_deg), options.line_length_m,
          options.lines * options.Spacing_m()};
}

Rocks::Rocks(const SurveyOptions& options, const Area& area)
    : height_m_(options.rock_height_m),
      radius_m_(options.rock_width_m / 2.0),
      middles_(Scattered(options, area)) {
  LayLattice();
}

std::vector<survey::GridPoint> Rocks::Scattered(const SurveyOptions& options,
                                                const Area& area) const {
  const PingRandom random = PingRandom::OfSurvey(options.seed);
  std::vector<survey::GridPoint> middles;
  if (!(height_m_ > 0.0)) return middles;
  for (std::uint32_t rock = 0; rock < options.rock_count; ++rock) {
    const double along_m = (random.Uniform(rock, Purpose::kRockAlong) - 0.5) * area.along_m;
    const double across_m = (random.Uniform(rock, Purpose::kRockAcross) - 0.5) * area.across_m;
    middles.push_back(area.way.At(along_m, across_m));
  }
  return middles;
}

void Rocks::LayLattice() {
  if (middles_.empty()) return;
  south_west_ = middles_.front();
  survey::GridPoint north_east = south_west_;
  for (const survey::GridPoint& middle : middles_) {
    south_west_.easting_m = std::min(south_west_.easting_m, middle.easting_m);
    south_west_.northing_m = std::min(south_west_.northing_m, middle.northing_m);
    north_east.easting_m = std::max(north_east.easting_m, middle.easting_m);
    north_east.northing_m = std::max(north_east.northing_m, middle.northing_m);
  }
  south_west_ = {south_west_.easting_m - radius_m_, south_west_.northing_m - radius_m_};
  north_east = {north_east.easting_m + radius_m_, north_east.northing_m + radius_m_};
  const double east_m = north_east.easting_m - south_west_.easting_m;
  const double north_m = north_east.northing_m - south_west_.northing_m;
  constexpr double kMostCells = 1e6;
  cell_m_ = std::max(2.0 * radius_m_, std::sqrt(east_m * north_m / kMostCells));
  columns_ = static_cast<std::int64_t>(east_m / cell_m_) + 1;
  rows_ = static_cast<std::int64_t>(north_m / cell_m_) + 1;

  // Counts first, then places: each cell's rocks end up next to each other.
  first_.assign(static_cast<std::size_t>(columns_ * rows_) + 1, 0);
  for (const survey::GridPoint& middle : middles_) {
    VisitCellsOf(middle, [&](std::size_t cell) { ++first_[cell + 1]; });
  }
  for (std::size_t cell = 1; cell < first_.size(); ++cell) first_[cell] += first_[cell - 1];
  near_.resize(first_.back());
  std::vector<std::uint32_t> next(first_.begin(), first_.end() - 1);
  for (std::size_t rock = 0; rock < middles_.size(); ++rock) {
    VisitCellsOf(middles_[rock],
                 [&](std::size_t cell) { near_[next[cell]++] = static_cast<std::uint32_t>(rock); });
  }
}

std::int64_t Rocks::Column(double easting_m) const {
  return static_cast<std::int64_t>(std::floor((easting_m - south_west_.easting_m) / cell_m_));
}
std::int64_t Rocks::Row(double northing_m) const {
  return static_cast<std::int64_t>(std::floor((northing_m - south_west_.northing_m) / cell_m_));
}

template <typename Visit>
void Rocks::VisitCellsOf(const survey::GridPoint& middle, Visit visit) const {
  const std::int64_t west = std::max<std::int64_t>(Column(middle.easting_m - radius_m_), 0);
  const std::int64_t east = std::min(Column(middle.easting_m + radius_m_), columns_ - 1);
  const std::int64_t south = std::max<std::int64_t>(Row(middle.northing_m - radius_m_), 0);
  const std::int64_t north = std::min(Row(middle.northing_m + radius_m_), rows_ - 1);
  for (std::int64_t row = south; row <= north; ++row) {
    for (std::int64_t column = west; column <= east; ++column) {
      visit(static_cast<std::size_t>(row * columns_ + column));
    }
  }
}

double Rocks::HeightAt(const survey::GridPoint& at) const {
  if (middles_.empty()) return 0.0;
  const std::int64_t column = Column(at.easting_m);
  const std::int64_t row = Row(at.northing_m);
  if (column < 0 || column >= columns_ || row < 0 || row >= rows_) return 0.0;
  const auto cell = static_cast<std::size_t>(row * columns_ + column);
  double nearest = std::numeric_limits<double>::infinity();
  for (std::uint32_t i = first_[cell]; i < first_[cell + 1]; ++i) {
    const double east_m = at.easting_m - middles_[near_[i]].easting_m;
    const double north_m = at.northing_m - middles_[near_[i]].northing_m;
    nearest = std::min(nearest, east_m * east_m + north_m * north_m);
  }
  return height_m_ * RoundedProfile(nearest / (radius_m_ * radius_m_));
}

Wreck::Wreck(const SurveyOptions& options, const survey::GridPoint& origin)
    : way_({origin.easting_m + options.wreck_east_m, origin.northing_m + options.wreck_north_m},
           options.wreck_azimuth_deg),
      height_m_(options.wreck_height_m),
      half_width_m_(options.wreck_width_m / 2.0),
      half_straight_m_(std::max(0.0, options.wreck_length_m - options.wreck_width_m) / 2.0) {}

double Wreck::HeightAt(const survey::GridPoint& at) const {
  const double beyond_m = std::max(0.0, std::abs(way_.Along(at)) - half_straight_m_);
  const double beside_m = way_.Across(at);
  return height_m_ * RoundedProfile((beyond_m * beyond_m + beside_m * beside_m) /
                                    (half_width_m_ * half_width_m_));
}

}  // namespace quarro::simulate
