// What stands on a seafloor: boulders and a wreck, and a flat with nothing else.
#pragma once

#include <cstdint>
#include <vector>

#include "simulate/profiles.h"
#include "simulate/seafloor.h"

namespace quarro::simulate {

// A rectangle that lies along a way, its middle on the way's point.
struct Area {
  Way way;
  double along_m = 0.0;   // its length
  double across_m = 0.0;  // its width

  // Of the survey's lines. They are laid out from true north, this from grid north: the few degrees
  // between them hardly matter to what is scattered over it.
  static Area OfLines(const SurveyOptions& options, const survey::GridPoint& origin);
};

// Boulders with flat tops and rounded edges, all of one size, scattered by the seed; where two
// overlap the higher counts. Constant after construction.
class Rocks {
 public:
  Rocks(const SurveyOptions& options, const Area& area);

  // Above the floor.
  double HeightAt(const survey::GridPoint& at) const;
  const std::vector<survey::GridPoint>& middles() const { return middles_; }

 private:
  // The cells of a square lattice over the area, each with the rocks that reach into it, so that a
  // depth asks a few rocks and not all.
  std::vector<survey::GridPoint> Scattered(const SurveyOptions& options, const Area& area) const;
  void LayLattice();
  std::int64_t Column(double easting_m) const;
  std::int64_t Row(double northing_m) const;
  template <typename Visit>
  void VisitCellsOf(const survey::GridPoint& middle, Visit visit) const;

  double height_m_;
  double radius_m_;
  std::vector<survey::GridPoint> middles_;
  survey::GridPoint south_west_;
  double cell_m_ = 1.0;
  std::int64_t columns_ = 0;
  std::int64_t rows_ = 0;
  std::vector<std::uint32_t> first_;  // of each cell's in `near_`, and their end
  std::vector<std::uint32_t> near_;   // indices into middles_
};

// A hull with a flat top, rounded sides and round ends.
class Wreck {
 public:
  Wreck(const SurveyOptions& options, const survey::GridPoint& origin);

  // Above the floor.
  double HeightAt(const survey::GridPoint& at) const;

 private:
  Way way_;  // along its length, through its middle
  double height_m_;
  double half_width_m_;
  double half_straight_m_;  // half of the part between the ends
};

class RockySeafloor : public Seafloor {
 public:
  RockySeafloor(const SurveyOptions& options, const survey::GridPoint& origin)
      : depth_m_(options.depth_m),
        rocks_(options, Area::OfLines(options, origin)),
        wreck_(options, origin) {}

  double DepthAt(const survey::GridPoint& at) const override {
    return Within(depth_m_ - std::max(rocks_.HeightAt(at), wreck_.HeightAt(at)));
  }

 private:
  const double depth_m_;
  const Rocks rocks_;
  const Wreck wreck_;
};

}  // namespace quarro::simulate
