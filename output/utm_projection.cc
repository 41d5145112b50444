// UTM through PROJ: the definition text names a plain projection between radians and metres.
#include "output/utm_projection.h"

#include <cstdlib>
#include <iostream>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

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

// A PROJ transformation with a context of its own, so that PROJ's state is shared with nobody. For
// one thread at a time.
class Transformation {
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
    PJ_COORD point = proj_coord(0.0, 0.0, 0.0, 0.0);
    point.lp = radians;
    return proj_trans(pj_, PJ_FWD, point).xy;
  }

  PJ_LP Inverse(PJ_XY metres) {
    PJ_COORD point = proj_coord(0.0, 0.0, 0.0, 0.0);
    point.xy = metres;
    return proj_trans(pj_, PJ_INV, point).lp;
  }

 private:
  PJ_CONTEXT* context_;
  PJ* pj_ = nullptr;
};

}  // namespace

// The transformations that no caller is using. They go with the projection, whichever threads used
// it; a cache of each thread's own would keep those of projections that are gone.
class UTMProjection::Pool {
 public:
  explicit Pool(std::unique_ptr<Transformation> first) { idle_.push_back(std::move(first)); }

  // One for the caller alone; made when all are in use, so that nobody waits for another's.
  std::unique_ptr<Transformation> Take(std::int32_t zone) {
    {
      const std::scoped_lock lock(mutex_);
      if (!idle_.empty()) {
        auto taken = std::move(idle_.back());
        idle_.pop_back();
        return taken;
      }
    }
    auto made = std::make_unique<Transformation>(Definition(zone));
    if (!made->Usable()) {
      throw std::bad_alloc();  // the same definition has worked before
    }
    return made;
  }

  void Return(std::unique_ptr<Transformation> transformation) {
    const std::scoped_lock lock(mutex_);
    idle_.push_back(std::move(transformation));
  }

 private:
  std::mutex mutex_;
  std::vector<std::unique_ptr<Transformation>> idle_;  // guarded by mutex_
};

UTMProjection::UTMProjection(std::int32_t zone) : zone_(zone) {
  auto first = std::make_unique<Transformation>(Definition(zone));
  if (!first->Usable()) {
    std::cerr << "error: failed to generate Proj.4 projection for zone " + std::to_string(zone) +
                     " (Proj.4 said: " + first->Error() + ")."
              << std::endl;
    throw bad_projection();
  }
  pool_ = std::make_unique<Pool>(std::move(first));
}

UTMProjection::~UTMProjection() = default;

void UTMProjection::Forward(double longitude, double latitude, double& x, double& y) const {
  auto transformation = pool_->Take(zone_);
  const PJ_XY metres =
      transformation->Forward({longitude * kRadiansPerDegree, latitude * kRadiansPerDegree});
  pool_->Return(std::move(transformation));
  x = metres.x;
  y = metres.y;
}

void UTMProjection::Inverse(double x, double y, double& longitude, double& latitude) const {
  auto transformation = pool_->Take(zone_);
  const PJ_LP radians = transformation->Inverse({x, y});
  pool_->Return(std::move(transformation));
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
