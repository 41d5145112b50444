// A seafloor of one depth.
#pragma once

#include "simulate/seafloor.h"

namespace quarro::simulate {

class FlatSeafloor : public Seafloor {
 public:
  explicit FlatSeafloor(const SurveyOptions& options) : depth_m_(options.depth_m) {}

  double DepthAt(const survey::GridPoint&) const override { return depth_m_; }

 private:
  const double depth_m_;
};

}  // namespace quarro::simulate
