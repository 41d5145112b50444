#include "gridding/service/open_grid.h"

#include <charconv>
#include <sstream>
#include <utility>

namespace quarro::service {

OpenGrid::OpenGrid(std::unique_ptr<store::GridStore> opened, const EngineConfig& config)
    : store(std::move(opened)), lattice(store->Parameters().resolution_m) {
  settings.resolution_m = lattice.spacing_m();
  settings.min_resolution_m = core::Lattice(store->Parameters().min_resolution_m).spacing_m();
  settings.estimator = config.estimator;
  settings.refinement = config.refinement;
  const auto snapshot = store->TakeSnapshot();
  utm_zone = ZoneFromSetting(snapshot->Setting(kZoneSetting));
  next_line = static_cast<std::uint32_t>(snapshot->GetTotals().lines) + 1;
}

int ZoneFromSetting(const std::string& text) {
  int zone = 0;
  std::from_chars(text.data(), text.data() + text.size(), zone);
  return zone;
}

std::string RefinementSettingsText(const core::GridSettings& settings) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text.precision(17);
  text << "method 3";
  const auto write = [&](const char* key, auto value, auto /*least*/, auto /*most*/) {
    text << "; " << key << ' ' << value;
  };
  core::VisitEstimatorSettings(settings.estimator, write);
  core::VisitRefinementSettings(settings.refinement, write);
  return text.str();
}

CurrentGrid::Lease::Lease(CurrentGrid& owner, OpenGrid& grid) : owner_(owner), grid_(&grid) {}

CurrentGrid::Lease::~Lease() {
  state_.reset();
  owner_.Release();
}

std::unique_ptr<CurrentGrid::Lease> CurrentGrid::TakeLease(Use use) {
  std::unique_ptr<Lease> lease;
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !replacing_; });
    if (!grid_) return nullptr;
    lease.reset(new Lease(*this, *grid_));
    ++leases_;
    if (use == Use::kLater) lease->state_ = shared_.lock();
  }
  if (lease->state_ && lease->state_->IsCurrent()) return lease;
  lease->state_ = std::make_shared<GridState>(*lease->grid_->store);
  if (use == Use::kLater) {
    const std::lock_guard lock(mutex_);
    shared_ = lease->state_;
  }
  return lease;
}

bool CurrentGrid::HasGrid() const {
  const std::lock_guard lock(mutex_);
  return grid_ != nullptr || replacing_;
}

void CurrentGrid::Release() {
  {
    const std::lock_guard lock(mutex_);
    --leases_;
  }
  changed_.notify_all();
}

void CurrentGrid::Set(std::unique_ptr<OpenGrid> next) {
  BeginReplacement();
  EndReplacement(std::move(next));
}

void CurrentGrid::BeginReplacement() {
  std::unique_ptr<OpenGrid> closing;
  std::unique_lock lock(mutex_);
  replacing_ = true;
  changed_.wait(lock, [this] { return leases_ == 0; });
  closing = std::move(grid_);
  lock.unlock();
  closing.reset();
}

void CurrentGrid::EndReplacement(std::unique_ptr<OpenGrid> next) {
  {
    const std::lock_guard lock(mutex_);
    grid_ = std::move(next);
    replacing_ = false;
  }
  changed_.notify_all();
}

}  // namespace quarro::service
