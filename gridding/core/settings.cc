#include "gridding/core/settings.h"

#include <string>

namespace quarro::core {

namespace {

// Reads each setting it visits from one section.
class Reader {
 public:
  Reader(const MParams& params, std::string section)
      : params_(params), section_(std::move(section)) {}

  void operator()(const char* key, bool& value, bool /*least*/, bool /*most*/) const {
    value = LookupFlag(params_, section_, key, value);
  }
  void operator()(const char* key, int& value, int least, int most) const {
    value = static_cast<int>(LookupInteger(params_, section_, key, value, least, most));
  }
  void operator()(const char* key, double& value, double least, double most) const {
    value = LookupNumber(params_, section_, key, value, least, most);
  }

 private:
  const MParams& params_;
  std::string section_;
};

}  // namespace

EstimatorSettings ReadEstimatorSettings(const MParams& params) {
  EstimatorSettings settings;
  VisitEstimatorSettings(settings, Reader(params, "Estimator"));
  return settings;
}

RefinementSettings ReadRefinementSettings(const MParams& params) {
  RefinementSettings settings;
  VisitRefinementSettings(settings, Reader(params, "Refinement"));
  return settings;
}

}  // namespace quarro::core
