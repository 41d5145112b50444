// The map projection in which survey data and grid are expressed.
#pragma once

#include <string>

namespace quarro {

// Geographic to projected coordinates and back. Angles are decimal degrees, longitudes positive
// east and latitudes positive north; projected coordinates are metres. Constant after construction:
// any thread may call any operation at any time.
class Projection {
 public:
  // Thrown by a constructor that cannot make the projection, after the reason was printed.
  class bad_projection {};

  Projection() = default;
  Projection(const Projection&) = delete;
  Projection& operator=(const Projection&) = delete;
  virtual ~Projection() = default;

  // A point that has no image gives infinities.
  virtual void Forward(double longitude, double latitude, double& x, double& y) const = 0;
  virtual void Inverse(double x, double y, double& longitude, double& latitude) const = 0;

  virtual std::string Name() const = 0;
  virtual double CentralMeridian() const = 0;  // degrees east
};

}  // namespace quarro
