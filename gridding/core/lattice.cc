#include "gridding/core/lattice.h"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>

namespace quarro::core {

namespace {

double ShortestDecimalOf(float value) {
  std::array<char, 64> text{};
  const auto written = std::to_chars(text.data(), text.data() + text.size(), value);
  double decimal = 0.0;
  std::from_chars(text.data(), written.ptr, decimal);
  return decimal;
}

constexpr double kLeastIndex = std::numeric_limits<std::int32_t>::min();
constexpr double kGreatestIndex = std::numeric_limits<std::int32_t>::max();

// The index of the cell along one axis: its west or south edge belongs to the cell before it.
double IndexAlong(double coordinate_m, double spacing_m) {
  return std::ceil(coordinate_m / spacing_m - 0.5);
}

bool NodesInInterval(double low_m, double high_m, double spacing_m, std::int32_t& first,
                     std::int32_t& last) {
  double low = std::ceil(low_m / spacing_m);
  double high = std::floor(high_m / spacing_m);
  // A bound printed from a node's own position must find that node again.
  if ((low - 1.0) * spacing_m >= low_m) low -= 1.0;
  if ((high + 1.0) * spacing_m <= high_m) high += 1.0;
  low = std::max(low, kLeastIndex);
  high = std::min(high, kGreatestIndex);
  if (!(low <= high)) return false;
  first = static_cast<std::int32_t>(low);
  last = static_cast<std::int32_t>(high);
  return true;
}

}  // namespace

std::uint64_t CellRange::Rows() const {
  return static_cast<std::uint64_t>(static_cast<std::int64_t>(north_east.row) - south_west.row + 1);
}

std::uint64_t CellRange::Columns() const {
  return static_cast<std::uint64_t>(static_cast<std::int64_t>(north_east.column) -
                                    south_west.column + 1);
}

bool CellRange::Contains(CellIndex cell) const {
  return cell.row >= south_west.row && cell.row <= north_east.row &&
         cell.column >= south_west.column && cell.column <= north_east.column;
}

Lattice::Lattice(float resolution_m) : spacing_m_(ShortestDecimalOf(resolution_m)) {}

CellIndex Lattice::CellOf(double easting_m, double northing_m) const {
  return {.row = static_cast<std::int32_t>(IndexAlong(northing_m, spacing_m_)),
          .column = static_cast<std::int32_t>(IndexAlong(easting_m, spacing_m_))};
}

Position Lattice::NodeOf(CellIndex cell) const {
  return {.easting_m = cell.column * spacing_m_, .northing_m = cell.row * spacing_m_};
}

bool Lattice::InReach(double easting_m, double northing_m) const {
  const double column = IndexAlong(easting_m, spacing_m_);
  const double row = IndexAlong(northing_m, spacing_m_);
  return column >= kLeastIndex && column <= kGreatestIndex && row >= kLeastIndex &&
         row <= kGreatestIndex;
}

bool Lattice::CellsInBox(double west_m, double south_m, double east_m, double north_m,
                         CellRange& range) const {
  return NodesInInterval(west_m, east_m, spacing_m_, range.south_west.column,
                         range.north_east.column) &&
         NodesInInterval(south_m, north_m, spacing_m_, range.south_west.row, range.north_east.row);
}

}  // namespace quarro::core
