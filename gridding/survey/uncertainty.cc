// The uncertainty model and its parameters.
#include <algorithm>
#include <cmath>

#include "gridding/survey/georeference.h"
#include "support/mparams.h"

namespace quarro::survey {

UncertaintyModel ReadUncertaintyModel(const MParams& params) {
  const auto number = [&](const char* key, double fallback, double lowest, double highest) {
    return LookupNumber(params, "Uncertainty", key, fallback, lowest, highest);
  };
  UncertaintyModel model;
  model.vertical_fixed_m = number("VerticalFixed", model.vertical_fixed_m, 0.0, 100.0);
  model.vertical_proportional =
      number("VerticalProportional", model.vertical_proportional, 0.0, 1.0);
  model.horizontal_fixed_m = number("HorizontalFixed", model.horizontal_fixed_m, 0.0, 1000.0);
  model.horizontal_proportional =
      number("HorizontalProportional", model.horizontal_proportional, 0.0, 1.0);
  model.angle_growth = number("AngleGrowth", model.angle_growth, 0.0, 10.0);
  model.least_vertical_m = number("LeastVertical", model.least_vertical_m, 0.001, 100.0);
  model.least_horizontal_m = number("LeastHorizontal", model.least_horizontal_m, 0.001, 1000.0);
  return model;
}

BeamSigma ModelSigma(const UncertaintyModel& model, double depth_m, double across_m) {
  // Beams beyond 80 degrees are not made; the limit keeps a shallow value at a far offset finite.
  constexpr double kSteepestTangentSquared = 32.0;
  const double depth_squared = depth_m * depth_m;
  const double across_squared = across_m * across_m;
  const double tangent_squared = across_squared < kSteepestTangentSquared * depth_squared
                                     ? across_squared / depth_squared
                                     : (across_squared > 0.0 ? kSteepestTangentSquared : 0.0);
  const double growth = 1.0 + model.angle_growth * tangent_squared;
  const auto sigma = [&](double fixed, double proportional, double least) {
    const double at_nadir = std::sqrt(fixed * fixed + proportional * proportional * depth_squared);
    return std::max(at_nadir * growth, least);
  };
  return {sigma(model.vertical_fixed_m, model.vertical_proportional, model.least_vertical_m),
          sigma(model.horizontal_fixed_m, model.horizontal_proportional, model.least_horizontal_m)};
}

}  // namespace quarro::survey
