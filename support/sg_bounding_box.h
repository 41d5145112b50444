// Bounds of a grid or of a request, in projected metres.
#pragma once

#include <iosfwd>

namespace quarro {

// A value: west <= east and south <= north, all finite. A box of all zeros stands for "not set".
class SGBoundingBox {
 public:
  SGBoundingBox() = default;
  // Eastings and northings in metres. Throws ExSGClientBase, naming the bounds, when one is not
  // finite or a pair is reversed.
  SGBoundingBox(double west_m, double south_m, double east_m, double north_m);

  double west() const { return west_m_; }
  double south() const { return south_m_; }
  double east() const { return east_m_; }
  double north() const { return north_m_; }

  // True when the point lies in the box or on its edge.
  bool Contains(double easting_m, double northing_m) const;

  friend bool operator==(const SGBoundingBox& a, const SGBoundingBox& b) = default;

 private:
  double west_m_ = 0.0;
  double south_m_ = 0.0;
  double east_m_ = 0.0;
  double north_m_ = 0.0;
};

// Writes west, south, east, north, blank-separated, in metres with three decimals whatever the
// stream's flags, precision, fill and locale, all of which it leaves as they were.
std::ostream& operator<<(std::ostream& out, const SGBoundingBox& box);

}  // namespace quarro
