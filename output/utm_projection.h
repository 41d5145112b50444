// Universal Transverse Mercator on the WGS84 ellipsoid.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "output/projection.h"

namespace quarro {

// One UTM zone, computed by PROJ. A PROJ transformation serves one thread at a time, so the
// projection holds several: each call has one to itself, and there are as many as calls were ever
// made at once.
class UTMProjection : public Projection {
 public:
  // `zone` is 1 to 60, negative for the southern hemisphere. For any other number PROJ's reason
  // goes to the standard error stream, and bad_projection is thrown.
  explicit UTMProjection(std::int32_t zone);
  ~UTMProjection() override;

  void Forward(double longitude, double latitude, double& x, double& y) const override;
  void Inverse(double x, double y, double& longitude, double& latitude) const override;
  std::string Name() const override;  // "UTM-19N-WGS84"
  double CentralMeridian() const override;

 private:
  class Pool;

  const std::int32_t zone_;
  std::unique_ptr<Pool> pool_;
};

}  // namespace quarro
