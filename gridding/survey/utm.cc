// Universal Transverse Mercator on WGS84: positions, and the small neighbourhood of one.
#include "gridding/survey/utm.h"

#include <algorithm>
#include <cstdlib>
#include <numbers>
#include <string>

#include <proj.h>

#include "support/exceptions.h"

namespace quarro::survey {
namespace {

constexpr double kRadians = std::numbers::pi / 180.0;  // a degree
constexpr double kSemiMajor_m = 6378137.0;
constexpr double kFlattening = 1.0 / 298.257223563;
constexpr double kEccentricitySquared = kFlattening * (2.0 - kFlattening);
constexpr double kCentralScale = 0.9996;
constexpr double kFalseEasting_m = 500000.0;

void Ignore(void*, int, const char*) {}

struct Radii {
  double meridian_m;
  double prime_vertical_m;
};

Radii RadiiAt(double latitude_rad) {
  const double sine = std::sin(latitude_rad);
  const double w = 1.0 - kEccentricitySquared * sine * sine;
  const double root = std::sqrt(w);
  return {kSemiMajor_m * (1.0 - kEccentricitySquared) / (w * root), kSemiMajor_m / root};
}

}  // namespace

Heading::Heading(double heading_deg, const LocalFrame& frame) {
  const double grid_azimuth = heading_deg * kRadians - frame.convergence_rad;
  sine = std::sin(grid_azimuth);
  cosine = std::cos(grid_azimuth);
}

struct UtmZone::Impl {
  struct ContextDelete {
    void operator()(PJ_CONTEXT* owned) const { proj_context_destroy(owned); }
  };
  struct ProjectionDelete {
    void operator()(PJ* owned) const { proj_destroy(owned); }
  };
  std::unique_ptr<PJ_CONTEXT, ContextDelete> context;
  std::unique_ptr<PJ, ProjectionDelete> projection;

  // Radians to metres.
  bool Project(double longitude_rad, double latitude_rad, GridPoint& point) const {
    const PJ_COORD out =
        proj_trans(projection.get(), PJ_FWD, proj_coord(longitude_rad, latitude_rad, 0.0, 0.0));
    if (!std::isfinite(out.xy.x) || !std::isfinite(out.xy.y)) {
      proj_errno_reset(projection.get());
      return false;
    }
    point = {out.xy.x, out.xy.y};
    return true;
  }
};

UtmZone::UtmZone(int zone) : impl_(std::make_unique<Impl>()), zone_(zone) {
  if (zone < -60 || zone == 0 || zone > 60) {
    throw ExSGClientBase("no UTM zone " + std::to_string(zone) +
                         ": zones are 1 to 60, and -1 to -60 in the south");
  }
  const int number = std::abs(zone);
  const std::string definition =
      "+proj=utm +zone=" + std::to_string(number) + (zone < 0 ? " +south" : "") + " +ellps=WGS84";
  impl_->context.reset(proj_context_create());
  if (impl_->context != nullptr) {
    proj_log_func(impl_->context.get(), nullptr, &Ignore);
    impl_->projection.reset(proj_create(impl_->context.get(), definition.c_str()));
  }
  if (impl_->projection == nullptr) {
    throw ExSGClientBase("PROJ cannot make the projection \"" + definition + "\"");
  }
}

UtmZone::~UtmZone() = default;

double UtmZone::central_meridian_deg() const { return 6.0 * std::abs(zone_) - 183.0; }

bool UtmZone::Forward(double longitude_deg, double latitude_deg, GridPoint& point) const {
  return impl_->Project(longitude_deg * kRadians, latitude_deg * kRadians, point);
}

bool UtmZone::Inverse(const GridPoint& point, double& longitude_deg, double& latitude_deg) const {
  const PJ_COORD out = proj_trans(impl_->projection.get(), PJ_INV,
                                  proj_coord(point.easting_m, point.northing_m, 0.0, 0.0));
  if (!std::isfinite(out.lp.lam) || !std::isfinite(out.lp.phi)) {
    proj_errno_reset(impl_->projection.get());
    return false;
  }
  longitude_deg = out.lp.lam / kRadians;
  latitude_deg = out.lp.phi / kRadians;
  return true;
}

bool UtmZone::Frame(double longitude_deg, double latitude_deg, LocalFrame& frame) const {
  // Scale and convergence are the complex derivative of the projection, which is conformal: the
  // grid step that a small step along the meridian makes. Central differences over 130 m leave less
  // than 1e-9 of it. The step keeps off the poles, where there is no north.
  constexpr double kStep_rad = 1e-5;
  constexpr double kNearestPole_rad = std::numbers::pi / 2 - 10 * kStep_rad;
  const double longitude_rad = longitude_deg * kRadians;
  const double latitude_rad = latitude_deg * kRadians;
  const double centre_rad = std::clamp(latitude_rad, -kNearestPole_rad, kNearestPole_rad);
  GridPoint south;
  GridPoint north;
  if (!impl_->Project(longitude_rad, latitude_rad, frame.origin) ||
      !impl_->Project(longitude_rad, centre_rad - kStep_rad, south) ||
      !impl_->Project(longitude_rad, centre_rad + kStep_rad, north)) {
    return false;
  }
  const Radii radii = RadiiAt(centre_rad);
  const double east_m = north.easting_m - south.easting_m;
  const double north_m = north.northing_m - south.northing_m;
  frame.scale = std::hypot(east_m, north_m) / (2.0 * kStep_rad * radii.meridian_m);
  // True north lies at grid azimuth -convergence.
  frame.convergence_rad = -std::atan2(east_m, north_m);
  frame.scale_gradient_per_m = (frame.origin.easting_m - kFalseEasting_m) / kCentralScale /
                               (radii.meridian_m * radii.prime_vertical_m);
  return true;
}

}  // namespace quarro::survey
