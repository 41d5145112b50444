// UTM through PROJ: the definition text names a plain projection between radians and metres.
#include "output/utm_projection.h"

#include <cstdlib>
#include <iostream>
#include <mutex>

#include <proj.h>

namespace quarro {

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kRadiansPerDegree = kPi / 180.0;
constexpr double kDegreesPerRadian = 180.0 / kPi;

// Wide enough for the magnitude of every 32-bit zone.
std::int64_t ZoneNumber(std::int32_t zone) { return std::abs(static_cast<std::int64_t>(zone)); }

std::string Definition(std::int32_t zone) {
  return "+proj=utm +zone=" + std::to_string(ZoneNumber(zone)) + (zone < 0 ? " +south" : "") +
         " +ellps=WGS84";
}

void DropMessage(void* /*user*/, int /*level*/, const char* /*text*/) {}

}  // namespace

// A PROJ transformation with a context of its own, so that PROJ's state is shared with nobody.
class UTMProjection::Transformation {
 public:
  explicit Transformation(const std::string& definition) : context_(proj_context_create()) {
    proj_log_func(context_, nullptr, DropMessage);
    pj_ = proj_create(context_, definition.c_str());
  }
  Transformation(const Transformation&) = delete;
  Transformation& operator=(const Transformation&) = delete;
  ~Transformation() {
    proj_destroy(pj_);
    proj_context_destroy(context_);
  }

  bool Usable() const { return pj_ != nullptr; }

  std::string Error() const {
    const char* text = proj_context_errno_string(context_, proj_context_errno(context_));
    return text == nullptr ? "" : text;
  }

  PJ_XY Forward(PJ_LP radians) {
    const std::scoped_lock lock(mutex_);
    PJ_COORD point = proj_coord(0.0, 0.0, 0.0, 0.0);
    point.lp = radians;
    return proj_trans(pj_, PJ_FWD, point).xy;
  }

  PJ_LP Inverse(PJ_XY metres) {
    const std::scoped_lock lock(mutex_);
    PJ_COORD point = proj_coord(0.0, 0.0, 0.0, 0.0);
    point.xy = metres;
    return proj_trans(pj_, PJ_INV, point).lp;
  }

 private:
  std::mutex mutex_;
  PJ_CONTEXT* context_;
  PJ* pj_ = nullptr;
};

UTMProjection::UTMProjection(std::int32_t zone)
    : zone_(zone), pj_(std::make_unique<Transformation>(Definition(zone))) {
  if (!pj_->Usable()) {
    std::cerr << "error: failed to generate Proj.4 projection for zone " + std::to_string(zone) +
                     " (Proj.4 said: " + pj_->Error() + ")."
              << std::endl;
    throw bad_projection();
  }
}

UTMProjection::~UTMProjection() = default;

void UTMProjection::Forward(double longitude, double latitude, double& x, double& y) const {
  const PJ_XY metres = pj_->Forward({longitude * kRadiansPerDegree, latitude * kRadiansPerDegree});
  x = metres.x;
  y = metres.y;
}

void UTMProjection::Inverse(double x, double y, double& longitude, double& latitude) const {
  const PJ_LP radians = pj_->Inverse({x, y});
  longitude = radians.lam * kDegreesPerRadian;
  latitude = radians.phi * kDegreesPerRadian;
}

std::string UTMProjection::Name() const {
  return "UTM-" + std::to_string(ZoneNumber(zone_)) + (zone_ > 0 ? "N" : "S") + "-WGS84";
}

double UTMProjection::CentralMeridian() const {
  return (static_cast<double>(ZoneNumber(zone_)) - 1.0) * 6.0 - 177.0;
}

}  // namespace quarro
