// What a line and a refinement have in common while they are written: one transaction on the grid's
// writing connection, and the totals that it leaves behind.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "gridding/store/database.h"
#include "gridding/store/grid_store.h"
#include "gridding/store/held_folder.h"

namespace quarro::store {

// The one connection that writes, with its statements. Outlives every transaction on it, and is
// outlived by `folder`.
struct Writer {
  explicit Writer(const HeldFolder& folder);

  const HeldFolder& folder;
  std::atomic<bool> taken = false;
  std::atomic<std::uint64_t> mark = 0;  // as GridStore::WriteMark
  Connection connection;
  Statement select_totals;
  Statement update_totals;
  Statement select_cell_state;
  Statement update_cell;
  Statement insert_cell;
  Statement mark_changed;
  Statement insert_soundings;
  Statement insert_line;
  Statement select_nodes;
  Statement select_refinement;
  Statement put_refinement;
  Statement remove_refinement;
  Statement put_setting;
};

// Has the writer to itself until it is committed or gone; rolled back unless committed. After a
// failure it is rolled back at once, and every further call throws.
class WriteTransaction {
 public:
  explicit WriteTransaction(Writer& writer);
  WriteTransaction(const WriteTransaction&) = delete;
  WriteTransaction& operator=(const WriteTransaction&) = delete;
  ~WriteTransaction();

  // Runs `step`, which may use the writer's statements and the totals.
  template <typename Step>
  void Do(const Step& step) {
    CheckOpen();
    try {
      step();
    } catch (...) {
      RollBack();
      throw;
    }
  }
  void PutSetting(const std::string& key, const std::string& value);
  void Commit();

  Writer& GetWriter() { return writer_; }
  Totals& GetTotals() { return totals_; }

 private:
  void CheckOpen() const;
  void RollBack() noexcept;
  void End() noexcept;

  Writer& writer_;
  Totals totals_;
  bool open_ = false;
};

}  // namespace quarro::store
