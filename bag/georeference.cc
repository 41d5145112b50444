// The comparison of projected corners with geographic bounds, by PROJ.

#include "bag/georeference.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>

#include <proj.h>

namespace quarro::bag {
namespace {

using Context = std::unique_ptr<PJ_CONTEXT, decltype(&proj_context_destroy)>;
using Transformation = std::unique_ptr<PJ, decltype(&proj_destroy)>;

// Straight edges of the grid bow in degrees; so many steps follow the bow closely enough.
constexpr int kStepsPerEdge = 8;
// What rounding may do to bounds written with few digits.
constexpr double kRounding_deg = 1e-5;
// Bounds may be those of cell edges or a box with a margin.
constexpr double kMarginCells = 2.0;

struct Range {
  double least = std::numeric_limits<double>::infinity();
  double greatest = -std::numeric_limits<double>::infinity();

  void add(double value) {
    least = std::min(least, value);
    greatest = std::max(greatest, value);
  }
  bool contains(double value, double tolerance) const {
    return value >= least - tolerance && value <= greatest + tolerance;
  }
};

struct Geographic {
  double longitude_deg;
  double latitude_deg;
};

// From the coordinate system to degrees of its own datum, longitude first.
class ToDegrees {
 public:
  explicit ToDegrees(const std::string& wkt)
      : context_(proj_context_create(), proj_context_destroy),
        transformation_(nullptr, proj_destroy) {
    if (!context_) return;
    proj_log_func(context_.get(), nullptr, [](void*, int, const char*) {});
    const Transformation projected =
        own(proj_create_from_wkt(context_.get(), wkt.c_str(), nullptr, nullptr, nullptr));
    if (!projected) return;
    const Transformation geographic =
        own(proj_crs_get_geodetic_crs(context_.get(), projected.get()));
    if (!geographic) return;
    const Transformation inverse = own(proj_create_crs_to_crs_from_pj(
        context_.get(), projected.get(), geographic.get(), nullptr, nullptr));
    if (!inverse) return;
    transformation_ = own(proj_normalize_for_visualization(context_.get(), inverse.get()));
  }

  bool valid() const { return transformation_ != nullptr; }

  // None where the projection has no inverse.
  std::optional<Geographic> at(double x, double y) const {
    const PJ_COORD degrees = proj_trans(transformation_.get(), PJ_FWD, proj_coord(x, y, 0, 0));
    if (!std::isfinite(degrees.xy.x) || !std::isfinite(degrees.xy.y)) return std::nullopt;
    return Geographic{.longitude_deg = degrees.xy.x, .latitude_deg = degrees.xy.y};
  }

 private:
  static Transformation own(PJ* pj) { return {pj, proj_destroy}; }

  Context context_;
  Transformation transformation_;
};

// The longitude's copy nearest to `reference`, so that the date line is no edge.
double unwrapped(double longitude_deg, double reference_deg) {
  return longitude_deg - 360.0 * std::round((longitude_deg - reference_deg) / 360.0);
}

}  // namespace

bool boundsFitCorners(const GridPlace& grid) {
  const ToDegrees to_degrees(grid.horizontal_wkt);
  if (!to_degrees.valid()) return true;
  const auto middle = to_degrees.at(0.5 * (grid.west + grid.east), 0.5 * (grid.south + grid.north));
  if (!middle) return false;

  Range west;
  Range east;
  Range south;
  Range north;
  for (int step = 0; step <= kStepsPerEdge; ++step) {
    const double part = static_cast<double>(step) / kStepsPerEdge;
    const double x = std::lerp(grid.west, grid.east, part);
    const double y = std::lerp(grid.south, grid.north, part);
    const auto on_west = to_degrees.at(grid.west, y);
    const auto on_east = to_degrees.at(grid.east, y);
    const auto on_south = to_degrees.at(x, grid.south);
    const auto on_north = to_degrees.at(x, grid.north);
    if (!on_west || !on_east || !on_south || !on_north) return false;
    west.add(unwrapped(on_west->longitude_deg, middle->longitude_deg));
    east.add(unwrapped(on_east->longitude_deg, middle->longitude_deg));
    south.add(on_south->latitude_deg);
    north.add(on_north->latitude_deg);
  }

  const auto next = to_degrees.at(0.5 * (grid.west + grid.east) + grid.column_spacing,
                                  0.5 * (grid.south + grid.north) + grid.row_spacing);
  if (!next) return false;
  const double longitude_tolerance =
      kRounding_deg +
      kMarginCells *
          std::abs(unwrapped(next->longitude_deg, middle->longitude_deg) - middle->longitude_deg);
  const double latitude_tolerance =
      kRounding_deg + kMarginCells * std::abs(next->latitude_deg - middle->latitude_deg);
  return west.contains(unwrapped(grid.west_longitude, middle->longitude_deg),
                       longitude_tolerance) &&
         east.contains(unwrapped(grid.east_longitude, middle->longitude_deg),
                       longitude_tolerance) &&
         south.contains(grid.south_latitude, latitude_tolerance) &&
         north.contains(grid.north_latitude, latitude_tolerance);
}

}  // namespace quarro::bag
