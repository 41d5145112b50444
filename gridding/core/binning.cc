#include "gridding/core/binning.h"

#include <algorithm>
#include <numeric>

namespace quarro::core {

namespace {

// From the 1-sigma error along one axis to the radius that holds 95 % of a circular normal error.
constexpr float kRadial95 = 2.4477F;
// A chunk whose cells span a rectangle of at most this many is sorted by counting.
constexpr std::uint64_t kMostCellsCounted = 1U << 22U;

}  // namespace

const BinnedChunk& Binner::Bin(const survey::Soundings& soundings, std::uint64_t& too_uncertain) {
  chunk_.soundings.clear();
  chunk_.runs.clear();
  kept_.clear();
  cells_.clear();
  CellRange range;
  const auto widest_m = static_cast<float>(lattice_.spacing_m());
  for (std::uint32_t i = 0; i < soundings.size(); ++i) {
    const double easting_m = soundings.easting_m[i];
    const double northing_m = soundings.northing_m[i];
    if (kRadial95 * soundings.sigma_h_m[i] > widest_m || !lattice_.InReach(easting_m, northing_m)) {
      ++too_uncertain;
      continue;
    }
    const CellIndex cell = lattice_.CellOf(easting_m, northing_m);
    if (kept_.empty()) {
      range = {cell, cell};
    } else {
      range.south_west.row = std::min(range.south_west.row, cell.row);
      range.south_west.column = std::min(range.south_west.column, cell.column);
      range.north_east.row = std::max(range.north_east.row, cell.row);
      range.north_east.column = std::max(range.north_east.column, cell.column);
    }
    kept_.push_back(i);
    cells_.push_back(cell);
  }
  if (kept_.empty()) return chunk_;
  chunk_.soundings.resize(kept_.size());
  if (range.Rows() <= kMostCellsCounted && range.Columns() <= kMostCellsCounted / range.Rows()) {
    SortByCounting(soundings, range);
  } else {
    SortByComparing(soundings);
  }
  return chunk_;
}

void Binner::SortByCounting(const survey::Soundings& soundings, const CellRange& range) {
  const auto columns = static_cast<std::uint32_t>(range.Columns());
  const auto slot_of = [&](CellIndex cell) {
    return static_cast<std::uint32_t>(cell.row - range.south_west.row) * columns +
           static_cast<std::uint32_t>(cell.column - range.south_west.column);
  };
  starts_.assign(range.Rows() * range.Columns() + 1, 0);
  for (const CellIndex cell : cells_) ++starts_[slot_of(cell) + 1];
  for (std::uint32_t slot = 0; slot + 1 < starts_.size(); ++slot) {
    const std::uint32_t count = starts_[slot + 1];
    if (count != 0) {
      const CellIndex cell{range.south_west.row + static_cast<std::int32_t>(slot / columns),
                           range.south_west.column + static_cast<std::int32_t>(slot % columns)};
      chunk_.runs.push_back({cell, starts_[slot], count});
    }
    starts_[slot + 1] += starts_[slot];
  }
  for (std::uint32_t i = 0; i < kept_.size(); ++i) {
    chunk_.soundings[starts_[slot_of(cells_[i])]++] = PackAt(soundings, i);
  }
}

void Binner::SortByComparing(const survey::Soundings& soundings) {
  std::vector<std::uint32_t> order(kept_.size());
  std::iota(order.begin(), order.end(), 0U);
  std::stable_sort(order.begin(), order.end(),
                   [&](std::uint32_t a, std::uint32_t b) { return cells_[a] < cells_[b]; });
  for (std::uint32_t i = 0; i < order.size(); ++i) {
    const CellIndex cell = cells_[order[i]];
    if (chunk_.runs.empty() || chunk_.runs.back().cell != cell) chunk_.runs.push_back({cell, i, 0});
    ++chunk_.runs.back().count;
    chunk_.soundings[i] = PackAt(soundings, order[i]);
  }
}

PackedSounding Binner::PackAt(const survey::Soundings& soundings, std::uint32_t index) const {
  const std::uint32_t i = kept_[index];
  return Pack({soundings.easting_m[i], soundings.northing_m[i]}, lattice_.NodeOf(cells_[index]),
              soundings.depth_m[i], soundings.sigma_v_m[i], soundings.sigma_h_m[i]);
}

}  // namespace quarro::core
