// A grid that is open in a session, and the leases that keep it open.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "gridding/core/lattice.h"
#include "gridding/core/settings.h"
#include "gridding/service/engine_config.h"
#include "gridding/service/grid_state.h"
#include "gridding/store/grid_store.h"

namespace quarro::service {

// Keys of the settings that are kept with a grid.
inline constexpr const char* kZoneSetting = "utm_zone";
inline constexpr const char* kRefinedWithSetting = "refined_with";

// A grid's store with what is derived from it once. Constant but for `utm_zone`, which only the
// grid thread reads and writes.
struct OpenGrid {
  OpenGrid(std::unique_ptr<store::GridStore> opened, const EngineConfig& config);

  std::unique_ptr<store::GridStore> store;
  core::Lattice lattice;
  core::GridSettings settings;
  std::uint32_t next_line = 1;  // sequence number of the line that comes next
  int utm_zone = 0;  // of the grid's soundings; 0 as long as none came with a geographic position
};

// The zone that a setting of a grid tells, 0 for none.
int ZoneFromSetting(const std::string& text);

// The settings that a refinement depends on, as text.
std::string RefinementSettingsText(const core::GridSettings& settings);

// The session's grid, if any. The grid thread opens and closes; other threads take leases.
class CurrentGrid {
 public:
  // A state of the grid, which stays open as long as the lease lives.
  class Lease {
   public:
    ~Lease();
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    const OpenGrid& grid() const { return *grid_; }
    GridState& state() const { return *state_; }

   private:
    friend class CurrentGrid;
    Lease(CurrentGrid& owner, OpenGrid& grid);
    CurrentGrid& owner_;
    OpenGrid* grid_;
    std::shared_ptr<GridState> state_;
  };

  // A lease that is used later shares its state with others where nothing was written between them,
  // and so may have to wait for a snapshot of it.
  enum class Use : std::uint8_t { kNow, kLater };
  // The state of now. Any thread. Null when there is no grid. While a grid is being replaced by one
  // of the same name it waits for the outcome. Throws as GridState does.
  std::unique_ptr<Lease> TakeLease(Use use);
  bool HasGrid() const;

  // The grid thread from here on. Valid until the next call that changes the grid.
  OpenGrid* grid() { return grid_.get(); }
  // Makes `next` (null: no grid) the current grid; closes the one before once its leases are gone.
  void Set(std::unique_ptr<OpenGrid> next);
  // Closes the grid once its leases are gone, and holds new leases up until EndReplacement.
  void BeginReplacement();
  void EndReplacement(std::unique_ptr<OpenGrid> next);

 private:
  void Release();

  mutable std::mutex mutex_;  // guards all below
  std::condition_variable changed_;
  std::unique_ptr<OpenGrid> grid_;  // changed by the grid thread only
  std::size_t leases_ = 0;
  std::weak_ptr<GridState> shared_;  // the last one to be used later; a lease keeps it
  bool replacing_ = false;
};

}  // namespace quarro::service
